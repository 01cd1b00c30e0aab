#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "util/common/utf8.h"

namespace {

struct Row {
    const char* name;
    std::string_view text;
    char32_t code;
    std::size_t length;
};

class FirstUtf8CharacterOf : public testing::TestWithParam<Row> {};

TEST_P(FirstUtf8CharacterOf, IsWhatStandsThereOrNothing) {
    const Utf8Character first = FirstUtf8Character(GetParam().text);
    EXPECT_EQ(first.length, GetParam().length);
    EXPECT_EQ(first.code, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Texts, FirstUtf8CharacterOf,
                         testing::Values(Row{"Ascii", "ab", 'a', 1},
                                         Row{"Zero", std::string_view("\0", 1), 0, 1},
                                         Row{"TheFirstOfTwo", "\xC2\x80", 0x80, 2},
                                         Row{"TheLastOfTwo", "\xDF\xBF", 0x7FF, 2},
                                         Row{"TheFirstOfThree", "\xE0\xA0\x80x", 0x800, 3},
                                         Row{"TheLastOfThree", "\xEF\xBF\xBF", 0xFFFF, 3},
                                         Row{"TheFirstOfFour", "\xF0\x90\x80\x80", 0x10000, 4},
                                         Row{"TheLastOfAll", "\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
                                         Row{"BehindTheLast", "\xF4\x90\x80\x80", 0, 0},
                                         Row{"TooLongForTwo", "\xC0\xAF", 0, 0},
                                         Row{"TooLongForThree", "\xE0\x9F\xBF", 0, 0},
                                         Row{"TooLongForFour", "\xF0\x8F\xBF\xBF", 0, 0},
                                         Row{"HalfAPair", "\xED\xA0\x80", 0, 0},
                                         Row{"AContinuation", "\x80", 0, 0},
                                         Row{"NoLead", "\xFF", 0, 0}, Row{"Torn", "\xE4\xB8", 0, 0},
                                         Row{"TornByAscii", "\xE4\xB8.", 0, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(TornEnd, IsTakenAwayWithItsCharacter) {
    for (const std::string_view torn :
         {"\xC3", "\xE4", "\xE4\xB8", "\xF0", "\xF0\x9F", "\xF0\x9F\x91"}) {
        EXPECT_EQ(WithoutTornEnd(std::string("ab").append(torn)), "ab");
        EXPECT_EQ(WithoutTornEnd(torn), "");
    }
}

TEST(TornEnd, IsNoWholeCharacterAndNothingElse) {
    for (const std::string_view whole :
         {"", "a", "ab", "\xC3\xB6", "a\xE4\xB8\xAD", "\xF0\x9F\x91\x8D", "\x80",
          "\x80\x80\x80\x80", "a\xFF", "a\xB6", "\xC3\xB6\xB6"}) {
        EXPECT_EQ(WithoutTornEnd(whole), whole);
    }
}

}  // namespace
