#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "util/common/errors.h"
#include "util/common/scanFileFit.h"

namespace {

constexpr int kReadFailed = 0x22BA5000 + 5;

ScanFileHeader_s Header(std::u16string_view poolName = u"POOL") {
    ScanFileHeader_s header{};
    header.closeTime = 1'700'000'060;
    header.scanID = {1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}};
    header.poolBlocks = 4096;
    header.dataBytes = 660 + 4104;
    for (std::size_t i = 0; i < poolName.size(); ++i) {
        header.poolName[i] = poolName[i];
    }
    return header;
}

class Fit : public testing::Test {
  protected:
    std::string Judge(const ScanFileHeader_s& header, int status = 0, bool nextBeside = true) {
        return fit_.Judge("set/T000000" + std::to_string(number_++) + ".ZRB", status, header,
                          nextBeside);
    }

    /// As `Judge`, of a file behind a sound one.
    std::string JudgeSecond(const ScanFileHeader_s& header, int status = 0) {
        EXPECT_EQ(Judge(Header()), "");
        return Judge(header, status);
    }

    ScanFileFit fit_;
    int number_ = 0;
};

TEST_F(Fit, SaysNothingOfFilesThatFit) {
    EXPECT_EQ(Judge(Header()), "");
    EXPECT_EQ(Judge(Header()), "");
    ScanFileHeader_s last = Header();
    last.flags = 0x241 | kFlagLastFile;
    EXPECT_EQ(Judge(last, 0, false), "");
}

TEST_F(Fit, SaysNothingOfFlagsThatTellNoTrouble) {
    ScanFileHeader_s header = Header();
    header.flags = 0xFFFFFFFF & ~(0x002U | 0x008U | 0x010U | 0x080U);
    EXPECT_EQ(Judge(header), "");
}

TEST_F(Fit, TellsAnotherScanID) {
    ScanFileHeader_s other = Header();
    other.scanID.node[5] ^= 1;
    EXPECT_EQ(JudgeSecond(other),
              "Note: set/T0000001.ZRB does not fit: its scan ID is not that of set/T0000000.ZRB\n");
}

TEST_F(Fit, TellsAnotherPoolName) {
    EXPECT_EQ(JudgeSecond(Header(u"OTHER")),
              "Note: set/T0000001.ZRB does not fit: its pool is \"OTHER\" and not \"POOL\"\n");
    EXPECT_EQ(Judge(Header(u"POO")),
              "Note: set/T0000002.ZRB does not fit: its pool is \"POO\" and not \"POOL\"\n");
    EXPECT_EQ(Judge(Header(u"")),
              "Note: set/T0000003.ZRB does not fit: its pool is \"\" and not \"POOL\"\n");
}

TEST_F(Fit, ReadsANameThatFillsItsFieldOrGoesOnBehindItsEnd) {
    const std::u16string whole(256, u'N');
    ScanFileFit fit;
    EXPECT_EQ(fit.Judge("a", 0, Header(whole), false), "");
    EXPECT_EQ(fit.Judge("b", 0, Header(whole), false), "");
    ScanFileHeader_s behind = Header();
    behind.poolName[10] = u'X';
    EXPECT_EQ(JudgeSecond(behind), "");
}

TEST_F(Fit, KeepsItsNoteOnOneLineWhateverAPoolIsCalled) {
    EXPECT_EQ(JudgeSecond(Header(u"A\nB\x1B\x7F\u00E9")),
              "Note: set/T0000001.ZRB does not fit: its pool is \"A?B??\xE9\" and not \"POOL\"\n");
}

TEST_F(Fit, TellsAnotherNumberOfBlocks) {
    ScanFileHeader_s other = Header();
    other.poolBlocks = 5000;
    EXPECT_EQ(JudgeSecond(other),
              "Note: set/T0000001.ZRB does not fit: its pool has 5000 blocks and not 4096\n");
}

TEST_F(Fit, TellsWhatFlagsSayOfTheSave) {
    struct {
        std::uint32_t flag;
        std::string text;
    } const cases[] = {
        {0x008, "its save was stopped"},
        {0x010, "its save was disturbed by a change of the pool's state"},
        {0x080, "its save met an error"},
    };
    for (const auto& [flag, text] : cases) {
        ScanFileHeader_s header = Header();
        header.flags = flag | 0x241;
        ScanFileFit fit;
        EXPECT_EQ(fit.Judge("a", 0, header, true), "Note: a does not fit: " + text + "\n");
    }
}

TEST_F(Fit, TellsAFileThatWasNeverClosed) {
    ScanFileHeader_s header = Header();
    header.closeTime = 0;
    EXPECT_EQ(Judge(header), "") << "the clock of a machine can stand at 0 when a file is closed";
    header.dataBytes = 660;
    EXPECT_EQ(Judge(header), "Note: set/T0000001.ZRB does not fit: it was never closed\n");
    header.closeTime = 1;
    EXPECT_EQ(Judge(header), "") << "a file without records can have been closed";
}

TEST_F(Fit, TellsALastFileThatIsNotTheLast) {
    ScanFileHeader_s header = Header();
    header.flags = kFlagLastFile;
    EXPECT_EQ(Judge(header, 0, false), "");
    EXPECT_EQ(Judge(header, 0, true),
              "Note: set/T0000001.ZRB does not fit: it says that it is the last, and the next lies "
              "beside it\n");
}

TEST_F(Fit, TellsAHeaderThatCannotBeReadAndNothingElseOfIt) {
    EXPECT_EQ(JudgeSecond({}, zERR_END_OF_FILE),
              "Note: set/T0000001.ZRB does not fit: it is too short to have a header\n");
    EXPECT_EQ(
        Judge({}, kReadFailed),
        "Note: set/T0000002.ZRB does not fit: its header cannot be read (status 582635525)\n");
}

TEST_F(Fit, TellsADamagedHeaderAndAllElseThatIsWrongWithIt) {
    EXPECT_EQ(JudgeSecond(Header(), zERR_MEDIA_CORRUPTED),
              "Note: set/T0000001.ZRB does not fit: its header is damaged\n");
    ScanFileHeader_s other = Header(u"OTHER");
    other.scanID = {};
    other.poolBlocks = 1;
    other.closeTime = 0;
    other.dataBytes = 0;
    other.flags = 0xFFFFFFFF;
    EXPECT_EQ(Judge(other, zERR_MEDIA_CORRUPTED),
              "Note: set/T0000002.ZRB does not fit: its header is damaged; "
              "its scan ID is not that of set/T0000000.ZRB; "
              "its pool is \"OTHER\" and not \"POOL\"; its pool has 1 blocks and not 4096; "
              "its save was stopped; its save was disturbed by a change of the pool's state; "
              "its save met an error; it was never closed; "
              "it says that it is the last, and the next lies beside it\n");
}

TEST_F(Fit, MeasuresByTheFirstFileThatHasASoundHeader) {
    EXPECT_NE(Judge({}, zERR_END_OF_FILE), "");
    EXPECT_NE(Judge(Header(u"DAMAGED"), zERR_MEDIA_CORRUPTED), "");
    EXPECT_EQ(Judge(Header(u"SOUND")), "");
    EXPECT_EQ(Judge(Header(u"SOUND")), "");
    EXPECT_EQ(Judge(Header(u"OTHER")),
              "Note: set/T0000004.ZRB does not fit: its pool is \"OTHER\" and not \"SOUND\"\n");
}

TEST(NextScanFile, CountsTheNumberOfTheFileAlone) {
    EXPECT_EQ(NextScanFile("T0000000.ZRB"), "T0000001.ZRB");
    EXPECT_EQ(NextScanFile("a.b/C0000099.ZRB"), "a.b/C0000100.ZRB");
    EXPECT_EQ(NextScanFile("./T0009999.ZRB"), "./T0010000.ZRB");
    EXPECT_EQ(NextScanFile("T0099998.ZRB"), "T0099999.ZRB");
}

TEST(NextScanFile, EndsBehindTheLastNumber) {
    EXPECT_EQ(NextScanFile("T0099999.ZRB"), std::nullopt);
}

TEST(NextScanFile, TakesNoOtherNames) {
    for (const char* name :
         {"", "T0000000.ZSB", "T0000000", ".ZRB", "0000.ZRB", "T00x0000.ZRB", "T000000a.ZRB"}) {
        EXPECT_EQ(NextScanFile(name), std::nullopt) << name;
    }
}

}  // namespace
