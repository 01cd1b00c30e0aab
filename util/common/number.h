#pragma once

#include <concepts>
#include <cstdint>

namespace Ostrel {

/// The value of a digit: 0 to 9, letters of either case 10 to 35; 37 for any other character, which
/// lies above every radix and so ends a number.
unsigned qradix_value(char ch);

/// Converts text to 64 bits: white space, one sign, digits of `radix` (2 to 36; 0 takes it from a
/// leading "0x" or "0"). `end`, when given, receives the place behind the last digit, or `text`
/// when there is none. `mode` 1 is signed, 0 unsigned: they differ only in their limits. A bad
/// radix gives 0.
std::uint64_t _stoq(const char* text, const char** end, unsigned radix, int mode);

/// `_stoq` unsigned: all ones on an overflow.
std::uint64_t LB_strtouq(const char* text, const char** end, unsigned radix);

/// `_stoq` signed: the limit of the sign on an overflow.
std::int64_t LB_strtoq(const char* text, const char** end, unsigned radix);

// The three with an `end` as strtoul takes it.

template <std::same_as<char*> End>
std::uint64_t _stoq(const char* text, End* end, unsigned radix, int mode) {
    return _stoq(text, const_cast<const char**>(end), radix, mode);
}

template <std::same_as<char*> End>
std::uint64_t LB_strtouq(const char* text, End* end, unsigned radix) {
    return LB_strtouq(text, const_cast<const char**>(end), radix);
}

template <std::same_as<char*> End>
std::int64_t LB_strtoq(const char* text, End* end, unsigned radix) {
    return LB_strtoq(text, const_cast<const char**>(end), radix);
}

}  // namespace Ostrel
