#include <gtest/gtest.h>

#include <string>

#include "util/common/ascii.h"

namespace {

std::string EveryByte() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::string Those(bool (*test)(char)) {
    std::string found;
    for (const char byte : EveryByte()) {
        if (test(byte)) {
            found += byte;
        }
    }
    return found;
}

TEST(AsciiText, KnowsItsLettersDigitsAndBlanks) {
    EXPECT_EQ(Those(Ascii::IsLower), "abcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(Those(Ascii::IsHexDigit), "0123456789ABCDEFabcdef");
    EXPECT_EQ(Those(Ascii::IsSpace), "\t\n\v\f\r ");
}

TEST(AsciiText, ChangesTheCaseOfItsLettersAlone) {
    for (const char byte : EveryByte()) {
        const bool lower = byte >= 'a' && byte <= 'z';
        const bool upper = byte >= 'A' && byte <= 'Z';
        EXPECT_EQ(Ascii::ToUpper(byte), lower ? static_cast<char>(byte - 32) : byte);
        EXPECT_EQ(Ascii::ToLower(byte), upper ? static_cast<char>(byte + 32) : byte);
    }
}

TEST(AsciiText, IsEqualButForTheCaseOfItsLetters) {
    EXPECT_TRUE(Ascii::EqualIgnoringCase("title", "TITLE"));
    EXPECT_TRUE(Ascii::EqualIgnoringCase("", ""));
    EXPECT_TRUE(
        Ascii::EqualIgnoringCase("gr\xC3\xB6\xC3\x9F"
                                 "e",
                                 "GR\xC3\xB6\xC3\x9F"
                                 "E"));
    EXPECT_FALSE(Ascii::EqualIgnoringCase("gr\xC3\xB6", "GR\xC3\x96"));
    EXPECT_FALSE(Ascii::EqualIgnoringCase("title", "TITLE "));
    EXPECT_FALSE(Ascii::EqualIgnoringCase("@", "`"));
    EXPECT_FALSE(Ascii::EqualIgnoringCase("[", "{"));
}

}  // namespace
