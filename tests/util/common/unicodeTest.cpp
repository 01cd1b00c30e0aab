#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <string>

#include "util/common/unicode.h"

namespace {

std::string Utf8(const char16_t* text) {
    std::string out;
    Ostrel::uni2utf(text, out);
    return out;
}

TEST(Uni2Utf, WritesOneByteBelow80) {
    EXPECT_EQ(Utf8(u"Az\x7F"), "Az\x7F");
}

TEST(Uni2Utf, WritesTwoBytesBelow800) {
    EXPECT_EQ(Utf8(u"\u00E9"), "\xC3\xA9");
    EXPECT_EQ(Utf8(u"\u0080\u07FF"), "\xC2\x80\xDF\xBF");
}

TEST(Uni2Utf, WritesThreeBytesFrom800On) {
    EXPECT_EQ(Utf8(u"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(Utf8(u"\u0800\uFFFF"), "\xE0\xA0\x80\xEF\xBF\xBF");
}

TEST(Uni2Utf, WritesEachHalfOfASurrogatePairByItself) {
    EXPECT_EQ(Utf8(u"\U0001F600"), "\xED\xA0\xBD\xED\xB8\x80");
}

TEST(Uni2Utf, AppendsToWhatIsThere) {
    std::string out = "pool ";
    Ostrel::uni2utf(u"DATA", out);
    EXPECT_EQ(out, "pool DATA");
}

TEST(Uni2Utf, AppendsNothingForANullSource) {
    std::string out = "kept";
    Ostrel::uni2utf(nullptr, out);
    EXPECT_EQ(out, "kept");
}

TEST(UnicodeString, WritesItsUtf8FormToAStream) {
    std::ostringstream stream;
    stream << '[' << UnicodeString(u"P\u00E9") << ']';
    EXPECT_EQ(stream.str(), "[P\xC3\xA9]");
}

TEST(UnicodeCompare, IsZeroForTheSamePointerUnread) {
    const auto* unreadable = reinterpret_cast<const char16_t*>(8);
    EXPECT_EQ(LB_unicmp(unreadable, unreadable), 0);
}

TEST(UnicodeCompare, IsZeroWhenBothEndTogether) {
    const std::u16string one = u"DATA";
    const std::u16string other = u"DATA";
    EXPECT_EQ(LB_unicmp(one.c_str(), other.c_str()), 0);
    EXPECT_EQ(LB_unicmp(u"", std::u16string().c_str()), 0);
}

TEST(UnicodeCompare, IsTheDifferenceOfTheFirstUnequalUnits) {
    EXPECT_EQ(LB_unicmp(u"abz", u"ada"), -2);
    EXPECT_EQ(LB_unicmp(u"ad", u"ab"), 2);
    EXPECT_EQ(LB_unicmp(u"\uFFFF", u"\u0001"), 0xFFFE);
    EXPECT_EQ(LB_unicmp(u"\u0001", u"\uFFFF"), -0xFFFE);
}

TEST(UnicodeCompare, CountsTheEndAsZero) {
    EXPECT_EQ(LB_unicmp(u"DATA", u"DAT"), 'A');
    EXPECT_EQ(LB_unicmp(u"DAT", u"DATA"), -'A');
}

TEST(UnicodeCopy, CopiesUpToAndWithTheEndAndReturnsTheDestination) {
    char16_t destination[6];
    std::ranges::fill(destination, u'x');
    EXPECT_EQ(LB_unicpy(destination, u"POOL"), destination);
    EXPECT_EQ(std::u16string(destination), u"POOL");
    EXPECT_EQ(destination[5], u'x');
}

}  // namespace
