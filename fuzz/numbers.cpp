// Numbers in texts: against arithmetic that tells what does not fit.

#include <cstring>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "util/common/number.h"
#include "util/common/tXML.h"

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

struct Number {
    std::uint64_t magnitude = 0;
    bool negative = false;
    bool tooLarge = false;  // for 64 bits
    const char* end = nullptr;
};

unsigned DigitOf(char character) {
    constexpr std::string_view kDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
    const bool upper = character >= 'A' && character <= 'Z';
    const std::size_t at =
        kDigits.find(upper ? static_cast<char>(character - 'A' + 'a') : character);
    return at == std::string_view::npos ? 99 : static_cast<unsigned>(at);
}

bool HasHexPrefix(const char* at) {
    return at[0] == '0' && (at[1] == 'x' || at[1] == 'X');
}

/// What a text means as a number in a base from 2 to 36, or in that of its prefix for 0.
Number Read(const char* text, unsigned radix) {
    Number number{.end = text};
    const char* at = text + std::strspn(text, kBlanks.data());
    number.negative = *at == '-';
    at += *at == '-' || *at == '+' ? 1 : 0;
    if (radix == 0) {
        radix = HasHexPrefix(at) ? 16 : *at == '0' ? 8 : 10;
    }
    at += radix == 16 && HasHexPrefix(at) ? 2 : 0;
    for (; DigitOf(*at) < radix; number.end = ++at) {
        const bool multiplied = __builtin_mul_overflow(number.magnitude, radix, &number.magnitude);
        const bool added =
            __builtin_add_overflow(number.magnitude, DigitOf(*at), &number.magnitude);
        number.tooLarge = number.tooLarge || multiplied || added;
    }
    return number;
}

void CheckQuad(const char* text, unsigned radix) {
    const Number wanted = Read(text, radix);
    const char* end = nullptr;
    const std::uint64_t value = Ostrel::LB_strtouq(text, &end, radix);
    const char* signedEnd = nullptr;
    const std::int64_t signedValue = Ostrel::LB_strtoq(text, &signedEnd, radix);
    fuzz::Require(end == wanted.end && signedEnd == wanted.end,
                  "the number ends where its digits do");
    if (!wanted.tooLarge) {
        const std::uint64_t magnitude = wanted.magnitude;
        fuzz::Require(value == (wanted.negative ? ~magnitude + 1 : magnitude),
                      "the unsigned value");
        constexpr std::uint64_t kTop = std::uint64_t{1} << 63;
        if (magnitude < kTop) {
            fuzz::Require(signedValue == static_cast<std::int64_t>(value), "the signed value");
        } else {
            fuzz::Require(signedValue == (wanted.negative ? INT64_MIN : INT64_MAX), "the limit");
        }
    }
}

/// The run of a reply that is converted: without a terminator, and no more than 79 bytes.
void CheckRun(std::string_view text) {
    const fuzz::TightText tight(text);
    std::uint64_t value = 0;
    const char* next = nullptr;
    const int status = TXML::XML_UTF8ToQUAD(tight.Begin(), tight.End(), value, &next);
    const std::size_t start = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::size_t end = std::min(text.find_first_of(kBlanks, start), text.size());
    const std::string run(text.substr(start, end - start));
    fuzz::Require((status == 0) == (!run.empty() && run.size() < 80), "runs that can be converted");
    if (status == 0) {
        fuzz::Require(next == tight.Begin() + end, "the run's end");
        fuzz::Require(value == Ostrel::LB_strtouq(run.c_str(), nullptr, 0), "the run's number");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned radix = input.Byte() % 37;
    CheckRun(input.Rest());
    const std::string text = input.Word('\0');
    if (radix == 1) {
        fuzz::Require(Ostrel::LB_strtouq(text.c_str(), nullptr, radix) == 0, "a base that is none");
    } else {
        CheckQuad(text.c_str(), radix);
    }
    return 0;
}
