#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "util/common/hexDump.h"

namespace {

std::vector<std::string> Dump(const std::string& bytes, int unit) {
    const support::CapturedLog log;
    ZED_HexDump(bytes.data(), static_cast<int>(bytes.size()), unit);
    return log.Lines();
}

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

const std::string kSixteen = "ABCDEFGHIJKLMNOP";

TEST(HexDump, ShowsSixteenBytesOnALineOf79Columns) {
    const std::vector<std::string> lines = Dump(kSixteen, 1);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0],
              "00000000  41 42 43 44 45 46 47 48 | 49 4a 4b 4c 4d 4e 4f 50 "
              "ABCDEFGHIJKLMNOP   ");
    EXPECT_EQ(lines[0].size(), 79U);
    EXPECT_EQ(lines[0].substr(31, 5), "48 | ");
    EXPECT_EQ(lines[0][34], '|');
    EXPECT_EQ(lines[0].substr(36, 2), "49");
}

TEST(HexDump, PutsTheSeventeenthByteOnALineOfItsOwn) {
    const std::vector<std::string> lines = Dump(kSixteen + "Q", 1);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1], "00000010  51" + Blanks(48) + "Q" + Blanks(18));
    EXPECT_EQ(lines[1].size(), 79U);
}

TEST(HexDump, EndsEveryLineWithANewline) {
    const support::CapturedLog log;
    ZED_HexDump(kSixteen.data(), 1, 1);
    EXPECT_EQ(log.Text(), "00000000  41" + Blanks(48) + "A" + Blanks(18) + "\n");
}

TEST(HexDump, SetsTheBarBehindTheFirstEightBytes) {
    EXPECT_EQ(Dump("ABCDEFGH", 1)[0],
              "00000000  41 42 43 44 45 46 47 48 | " + Blanks(24) + "ABCDEFGH" + Blanks(11));
    EXPECT_EQ(Dump("ABCDEFG", 1)[0],
              "00000000  41 42 43 44 45 46 47 " + Blanks(29) + "ABCDEFG" + Blanks(12));
}

TEST(HexDump, ReadsUnitsOfTwoAsNativeWords) {
    EXPECT_EQ(Dump(kSixteen, 2)[0], "00000000  4241 4443 4645 4847 | 4a49 4c4b 4e4d 504f " +
                                        Blanks(8) + "ABCDEFGHIJKLMNOP   ");
}

TEST(HexDump, ReadsUnitsOfFourAsNativeWords) {
    EXPECT_EQ(Dump(kSixteen, 4)[0], "00000000  44434241 48474645 | 4c4b4a49 504f4e4d " +
                                        Blanks(12) + "ABCDEFGHIJKLMNOP   ");
}

TEST(HexDump, ReadsNothingBehindTheDataInAPartialUnit) {
    EXPECT_EQ(Dump("ABC", 2)[0].substr(0, 20), "00000000  4241 0043 ");
    EXPECT_EQ(Dump("A", 4)[0].substr(0, 20), "00000000  00000041  ");
}

TEST(HexDump, TreatsAnyOtherUnitAsOne) {
    for (const int unit : {0, 3, 8, -1, 16}) {
        EXPECT_EQ(Dump(kSixteen, unit), Dump(kSixteen, 1)) << unit;
    }
}

TEST(HexDump, ShowsTheCodes26To127AsTheyAre) {
    std::string bytes;
    for (int code = 0; code < 256; ++code) {
        bytes.push_back(static_cast<char>(code));
    }
    const support::CapturedLog log;
    ZED_HexDump(bytes.data(), 256, 1);
    const std::string text = log.Text();
    ASSERT_EQ(text.size(), 16U * 80);
    for (std::size_t code = 0; code < 256; ++code) {
        const char shown = text[code / 16 * 80 + 60 + code % 16];
        const bool kept = code >= 26 && code <= 127;
        EXPECT_EQ(shown, kept ? static_cast<char>(code) : '.') << code;
    }
}

TEST(HexDump, CountsTheOffsetInEightHexadecimalDigits) {
    const std::vector<std::string> lines = Dump(std::string(4104, 'x'), 1);
    ASSERT_EQ(lines.size(), 257U);
    EXPECT_EQ(lines[10].substr(0, 10), "000000a0  ");
    EXPECT_EQ(lines[256].substr(0, 10), "00001000  ");
}

TEST(HexDump, PrintsNothingForALengthOfZeroOrLess) {
    const support::CapturedLog log;
    ZED_HexDump("x", 0, 1);
    ZED_HexDump("x", -1, 1);
    ZED_HexDump(nullptr, -2147483647 - 1, 4);
    EXPECT_EQ(log.Text(), "");
}

}  // namespace
