#include "util/common/number.h"

#include <limits>

#include "util/common/ascii.h"

namespace Ostrel {
namespace {

constexpr unsigned kNoDigit = 37;
constexpr std::uint64_t kTopBit = std::uint64_t{1} << 63;

bool AtHexPrefix(const char* text) {
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

unsigned DetectRadix(const char* text) {
    if (AtHexPrefix(text)) {
        return 16;
    }
    return *text == '0' ? 8 : 10;
}

struct Digits {
    std::uint64_t value = 0;
    bool overflow = false;
    const char* end;  // behind the last digit
};

/// The overflow test sees only a step that makes the value smaller; a product that wraps to a
/// larger value passes, and callers rely on the results as they are.
Digits Accumulate(const char* text, unsigned radix) {
    Digits digits{.end = text};
    for (unsigned digit = 0; (digit = qradix_value(*digits.end)) < radix; ++digits.end) {
        const std::uint64_t next = digits.value * radix + digit;
        digits.overflow = digits.overflow || next < digits.value;
        digits.value = next;
    }
    return digits;
}

bool ExceedsSigned(const Digits& digits, bool negative) {
    if (digits.overflow) {
        return true;
    }
    return digits.value == kTopBit ? !negative : (digits.value & kTopBit) != 0;
}

}  // namespace

unsigned qradix_value(char ch) {
    if (ch >= '0' && ch <= '9') {
        return static_cast<unsigned>(ch - '0');
    }
    if (ch >= 'a' && ch <= 'z') {
        return static_cast<unsigned>(ch - 'a') + 10;
    }
    if (ch >= 'A' && ch <= 'Z') {
        return static_cast<unsigned>(ch - 'A') + 10;
    }
    return kNoDigit;
}

std::uint64_t _stoq(const char* text, const char** end, unsigned radix, int mode) {
    const char* ignored = nullptr;
    const char*& stop = end != nullptr ? *end : ignored;
    stop = text;
    const char* at = text;
    while (Ascii::IsSpace(*at)) {
        ++at;
    }
    const bool negative = *at == '-';
    if (negative || *at == '+') {
        ++at;
    }
    if (radix == 0) {
        radix = DetectRadix(at);
    } else if (radix < 2 || radix > 36) {
        return 0;
    }
    if (radix == 16 && AtHexPrefix(at)) {
        at += 2;
    }
    const Digits digits = Accumulate(at, radix);
    if (digits.end != at) {
        stop = digits.end;
    }
    if (mode == 1 && ExceedsSigned(digits, negative)) {
        return negative ? kTopBit : kTopBit - 1;
    }
    if (mode == 0 && digits.overflow) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return negative ? ~digits.value + 1 : digits.value;
}

std::uint64_t LB_strtouq(const char* text, const char** end, unsigned radix) {
    return _stoq(text, end, radix, 0);
}

std::int64_t LB_strtoq(const char* text, const char** end, unsigned radix) {
    return static_cast<std::int64_t>(_stoq(text, end, radix, 1));
}

}  // namespace Ostrel
