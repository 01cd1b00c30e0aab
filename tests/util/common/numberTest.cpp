#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "util/common/number.h"

namespace {

constexpr std::uint64_t kAllOnes = 0xFFFFFFFFFFFFFFFF;
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

TEST(QRadixValue, CountsDigitsAndLettersOfEitherCase) {
    const std::string lower = "0123456789abcdefghijklmnopqrstuvwxyz";
    const std::string upper = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (unsigned value = 0; value < 36; ++value) {
        EXPECT_EQ(Ostrel::qradix_value(lower[value]), value);
        EXPECT_EQ(Ostrel::qradix_value(upper[value]), value);
    }
}

TEST(QRadixValue, IsAboveEveryRadixForAnyOtherCharacter) {
    for (const char other : {'\0', ' ', '/', ':', '@', '[', '`', '{', '-', '\x80', '\xFF'}) {
        EXPECT_EQ(Ostrel::qradix_value(other), 37U) << static_cast<int>(other);
    }
}

struct Conversion {
    const char* name;
    const char* text;
    unsigned radix;
    std::uint64_t unsignedValue;
    std::int64_t signedValue;
    int consumed;
};

class NumberText : public testing::TestWithParam<Conversion> {};

TEST_P(NumberText, ConvertsUnsigned) {
    const Conversion& row = GetParam();
    const char* end = nullptr;
    EXPECT_EQ(Ostrel::LB_strtouq(row.text, &end, row.radix), row.unsignedValue);
    EXPECT_EQ(end - row.text, row.consumed);
    EXPECT_EQ(Ostrel::_stoq(row.text, nullptr, row.radix, 0), row.unsignedValue);
}

TEST_P(NumberText, ConvertsSigned) {
    const Conversion& row = GetParam();
    const char* end = nullptr;
    EXPECT_EQ(Ostrel::LB_strtoq(row.text, &end, row.radix), row.signedValue);
    EXPECT_EQ(end - row.text, row.consumed);
    EXPECT_EQ(Ostrel::_stoq(row.text, nullptr, row.radix, 1),
              static_cast<std::uint64_t>(row.signedValue));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NumberText,
    testing::Values(
        Conversion{"PlainDecimal", "42", 10, 42, 42, 2},
        Conversion{"StopsAtTheFirstOtherCharacter", "12a", 10, 12, 12, 2},
        Conversion{"DetectsDecimal", "19", 0, 19, 19, 2},
        Conversion{"DetectsOctal", "017", 0, 15, 15, 3},
        Conversion{"OctalEndsAtAnEight", "018", 0, 1, 1, 2},
        Conversion{"LoneZeroIsOctalZero", "0", 0, 0, 0, 1},
        Conversion{"DetectsHexadecimal", "0xfF", 0, 255, 255, 4},
        Conversion{"DetectsUpperCasePrefix", "0X1f", 0, 31, 31, 4},
        Conversion{"BlanksSignAndPrefix", " -0x10", 0, static_cast<std::uint64_t>(-16), -16, 6},
        Conversion{"EveryKindOfWhiteSpace", " \t\n\v\f\r7", 10, 7, 7, 7},
        Conversion{"PlusSign", "+5", 10, 5, 5, 2}, Conversion{"OneSignOnly", "-+5", 10, 0, 0, 0},
        Conversion{"NoBlankBehindTheSign", "- 5", 10, 0, 0, 0},
        Conversion{"SkipsThePrefixOfAGivenRadix16", "0x1F", 16, 31, 31, 4},
        Conversion{"PrefixAloneIsNoNumber", "0x", 16, 0, 0, 0},
        Conversion{"PrefixWithoutDigitIsNoNumber", "0xg", 0, 0, 0, 0},
        Conversion{"PrefixInDecimalEndsAtTheX", "0x10", 10, 0, 0, 1},
        Conversion{"EmptyText", "", 10, 0, 0, 0}, Conversion{"SignAlone", "-", 10, 0, 0, 0},
        Conversion{"Binary", "101", 2, 5, 5, 3}, Conversion{"Radix36", "zZ", 36, 1295, 1295, 2},
        Conversion{"Radix1IsRefused", "1", 1, 0, 0, 0},
        Conversion{"Radix37IsRefused", "1", 37, 0, 0, 0},
        Conversion{"NegativeUnsignedIsTheComplement", "-1", 10, kAllOnes, -1, 2}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Limits, NumberText,
    testing::Values(
        Conversion{"LargestSigned", "9223372036854775807", 10, 9223372036854775807U, kLargest, 19},
        Conversion{"TopBitAloneWithoutSign", "9223372036854775808", 10, 9223372036854775808U,
                   kLargest, 19},
        Conversion{"TopBitAloneNegative", "-9223372036854775808", 10, 9223372036854775808U,
                   kSmallest, 20},
        Conversion{"AboveTheTopBit", "9223372036854775809", 10, 9223372036854775809U, kLargest, 19},
        Conversion{"AboveTheTopBitNegative", "-9223372036854775809", 10, 9223372036854775807U,
                   kSmallest, 20},
        Conversion{"AllOnes", "18446744073709551615", 10, kAllOnes, kLargest, 20},
        Conversion{"OneMoreThanAllOnes", "18446744073709551616", 10, kAllOnes, kLargest, 20},
        Conversion{"TwentyNines", "99999999999999999999", 10, kAllOnes, kLargest, 20},
        Conversion{"TwentyNinesNegative", "-99999999999999999999", 10, kAllOnes, kSmallest, 21},
        Conversion{"HexadecimalTopBit", "0x8000000000000000", 0, 0x8000000000000000, kLargest, 18},
        Conversion{"HexadecimalTopBitNegative", "-0x8000000000000000", 0, 0x8000000000000000,
                   kSmallest, 19}),
    [](const auto& row) { return row.param.name; });

// 0x1123456789012345 times 16 wraps to a larger number than it was, which is not noticed.
INSTANTIATE_TEST_SUITE_P(
    Oddities, NumberText,
    testing::Values(
        Conversion{"WrapToALargerValuePasses", "0x11234567890123456", 0, 0x1234567890123456,
                   0x1234567890123456, 19},
        Conversion{"WrapToALargerNegativeValuePasses", "-0x11234567890123456", 0,
                   static_cast<std::uint64_t>(-0x1234567890123456), -0x1234567890123456, 20},
        Conversion{"WrapToASmallerValueIsSeen", "0x10000000000000000", 0, kAllOnes, kLargest, 19}),
    [](const auto& row) { return row.param.name; });

TEST(NumberLimits, OverflowOnceSeenIsRememberedThroughLargerSteps) {
    EXPECT_EQ(Ostrel::LB_strtouq("184467440737095516160", nullptr, 10), kAllOnes);
    EXPECT_EQ(Ostrel::LB_strtoq("-184467440737095516169", nullptr, 10), kSmallest);
}

TEST(NumberEnd, MayBeOfTheKindThatStrtoulTakes) {
    char text[] = " -0x10;";
    char* end = nullptr;
    EXPECT_EQ(Ostrel::LB_strtoq(text, &end, 0), -16);
    EXPECT_STREQ(end, ";");
    end = nullptr;
    EXPECT_EQ(Ostrel::LB_strtouq(text, &end, 0), static_cast<std::uint64_t>(-16));
    EXPECT_STREQ(end, ";");
    end = nullptr;
    EXPECT_EQ(Ostrel::_stoq(text, &end, 37, 0), 0U);
    EXPECT_EQ(end, text);
    char** const noEnd = nullptr;
    EXPECT_EQ(Ostrel::LB_strtoq(text, noEnd, 0), -16);
}

TEST(NumberEnd, MayBeLeftOutByEitherNull) {
    EXPECT_EQ(Ostrel::LB_strtouq("7", 0, 10), 7U);  // NOLINT(modernize-use-nullptr)
    EXPECT_EQ(Ostrel::LB_strtoq("7", nullptr, 10), 7);
    EXPECT_EQ(Ostrel::_stoq("7", 0, 10, 1), 7U);  // NOLINT(modernize-use-nullptr)
}

TEST(NumberLimits, BadRadixLeavesTheEndAtTheTextDespiteLeadingBlanks) {
    const char* text = "  12";
    const char* end = nullptr;
    EXPECT_EQ(Ostrel::LB_strtouq(text, &end, 37), 0U);
    EXPECT_EQ(end, text);
}

}  // namespace
