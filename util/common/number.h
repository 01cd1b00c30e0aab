#pragma once

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

}  // namespace Ostrel
