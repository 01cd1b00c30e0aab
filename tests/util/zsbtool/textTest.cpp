#include <gtest/gtest.h>

#include <clocale>

#include "util/common/guid.h"
#include "util/zsbtool/text.h"

namespace zsbtool {
namespace {

TEST(Printable, LeavesTextsOfEveryScriptAlone) {
    EXPECT_EQ(Printable(""), "");
    EXPECT_EQ(Printable("T0000000.ZSB"), "T0000000.ZSB");
    EXPECT_EQ(Printable("Käse €  漢字 \xF0\x9F\x98\x80"), "Käse €  漢字 \xF0\x9F\x98\x80");
}

TEST(Printable, EscapesWhatSteersATerminal) {
    EXPECT_EQ(Printable("a\x1b[31mb"), "a\\x1b[31mb");
    EXPECT_EQ(Printable("a\nb\tc\rd\x7f"), "a\\x0ab\\x09c\\x0dd\\x7f");
    EXPECT_EQ(Printable("\xC2\x9B"), "\\xc2\\x9b");
    EXPECT_EQ(Printable("\xE2\x80\xAE"), "\\xe2\\x80\\xae");
    EXPECT_EQ(Printable(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(Printable, EscapesBytesThatAreNoCharacter) {
    EXPECT_EQ(Printable("\xFF"), "\\xff");
    EXPECT_EQ(Printable("\xC3"), "\\xc3");
    EXPECT_EQ(Printable("\xC3("), "\\xc3(");
    EXPECT_EQ(Printable("\xE2\x82"), "\\xe2\\x82");
    EXPECT_EQ(Printable("\xC0\x80"), "\\xc0\\x80");
    EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}

TEST(DisplayWidth, CountsColumns) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(DisplayWidth(""), 0U);
    EXPECT_EQ(DisplayWidth("abc"), 3U);
    EXPECT_EQ(DisplayWidth("Käse"), 4U);
    EXPECT_EQ(DisplayWidth("漢字"), 4U);
    EXPECT_EQ(DisplayWidth("e\xCC\x81"), 1U);
    EXPECT_EQ(DisplayWidth("a\xFFg"), 3U);
}

TEST(ReadableSize, HasOneDecimalFromAKibibyteOn) {
    EXPECT_EQ(ReadableSize(0), "0 B");
    EXPECT_EQ(ReadableSize(1023), "1023 B");
    EXPECT_EQ(ReadableSize(1024), "1.0 KiB");
    EXPECT_EQ(ReadableSize(10'486'380), "10.0 MiB");
    EXPECT_EQ(ReadableSize(1'048'575), "1.0 MiB");
    EXPECT_EQ(ReadableSize(~std::uint64_t{0}), "16.0 EiB");
}

TEST(Counted, SaysOneAndMany) {
    EXPECT_EQ(Counted(0, "block"), "0 blocks");
    EXPECT_EQ(Counted(1, "block"), "1 block");
    EXPECT_EQ(Counted(2, "block"), "2 blocks");
}

TEST(TimeText, IsUTC) {
    EXPECT_EQ(TimeText(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(TimeText(1'700'000'000), "2023-11-14T22:13:20Z");
    EXPECT_EQ(TimeText(0xFFFFFFFF), "2106-02-07T06:28:15Z");
}

TEST(GuidText, IsTheTextFormOfTheTool) {
    const GUID_t guid{0x01020304, 0x0506, 0x0708, 0x09, 0x0A, {1, 2, 3, 4, 5, 6}};
    EXPECT_EQ(GuidText(guid), "01020304-0506-0708-09-0a-010203040506");
}

}  // namespace
}  // namespace zsbtool
