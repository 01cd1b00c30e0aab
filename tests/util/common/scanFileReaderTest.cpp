#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/openFiles.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanFileReader.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;

constexpr int kInvalidState = 20010;
constexpr int kMediaCorrupted = 20012;
constexpr int kEndOfFile = 20100;
constexpr int kNotFound = 20444;

/// Uses the reader by itself, as a program does that opens files by their paths.
class FileReader : public testing::Test {
  protected:
    void Open(const ScanFileImage& image) {
        image.Write(path_);
        ASSERT_EQ(reader_.Open(path_), 0);
    }

    void ExpectRecord(const TestRecord& wanted) {
        ASSERT_EQ(reader_.Read(&record_), 0);
        EXPECT_EQ(record_.blockNumber, wanted.number);
        EXPECT_EQ(std::string_view(record_.block, sizeof record_.block), wanted.block);
    }

    void ExpectEnd() { EXPECT_EQ(reader_.Read(&record_), kEndOfFile); }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("a file of any name");
    support::CapturedLog log_;
    ScanFileReader reader_;
    QuadAndBlock_s record_{};
    const std::vector<TestRecord> records_{MakeTestRecord(3), MakeTestRecord(7, "BRCH")};
};

TEST_F(FileReader, ReadsOneFileAfterAnother) {
    for (const bool compressed : {false, true, false}) {
        Open(compressed ? ScanFileImage::Compressed(records_) : ScanFileImage::Raw(records_));
        EXPECT_EQ(reader_.HeaderStatus(), 0);
        EXPECT_EQ(reader_.Inflating(), compressed);
        EXPECT_EQ(reader_.Crc(), 0xFFFFFFFFU);
        ExpectRecord(records_[0]);
        EXPECT_NE(reader_.Crc(), reader_.Header().crc);
        ExpectRecord(records_[1]);
        EXPECT_EQ(reader_.Crc(), reader_.Header().crc);
        ExpectEnd();
        EXPECT_EQ(reader_.Close(), 0);
    }
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(FileReader, RefusesWhatNeedsAnOpenFileAndOpensNoSecondOne) {
    unsigned char bytes[8];
    for (const char* when : {"before", "after"}) {
        EXPECT_EQ(reader_.Read(&record_), kInvalidState) << when;
        EXPECT_EQ(reader_.ReadAt(660, &record_), kInvalidState) << when;
        EXPECT_EQ(reader_.ReadHeader(), kInvalidState) << when;
        EXPECT_EQ(reader_.InflateRecord(bytes), kInvalidState) << when;
        EXPECT_EQ(reader_.ReadBytes(bytes, 8), kInvalidState) << when;
        EXPECT_EQ(reader_.ReadSomeBytes(bytes, 8), 0U) << when;
        EXPECT_EQ(reader_.Close(), kInvalidState) << when;
        Open(ScanFileImage::Raw(records_));
        EXPECT_EQ(reader_.Open(path_), kInvalidState) << when;
        EXPECT_EQ(support::DescriptorsOf(path_).size(), 1U) << when;
        ASSERT_EQ(reader_.Close(), 0);
    }
}

TEST_F(FileReader, KeepsWhatItReadOfAFileUntilTheNextIsOpened) {
    Open(ScanFileImage::Raw(records_));
    ExpectRecord(records_[0]);
    const std::uint32_t crc = reader_.Crc();
    ASSERT_EQ(reader_.Close(), 0);
    EXPECT_EQ(reader_.Open(directory_.File("missing")), kNotFound);
    EXPECT_EQ(reader_.Crc(), crc);
    EXPECT_EQ(reader_.Offset(), 660U + 4104);
    EXPECT_EQ(RecordsInDataBytes(reader_.Header().dataBytes), 2U);
    Open(ScanFileImage::Raw({}));
    EXPECT_EQ(reader_.Crc(), 0xFFFFFFFFU);
    EXPECT_EQ(reader_.Offset(), 660U);
    EXPECT_EQ(RecordsInDataBytes(reader_.Header().dataBytes), 0U);
}

TEST_F(FileReader, TellsABadHeaderAndReadsAsFarAsItAllows) {
    Open(ScanFileImage::Raw(records_).FlipByte(0));
    EXPECT_EQ(reader_.HeaderStatus(), kMediaCorrupted);
    ExpectRecord(records_[0]);
    ASSERT_EQ(reader_.Close(), 0);
    Open(ScanFileImage::Raw(records_).ShrinkSize(659));
    EXPECT_EQ(reader_.HeaderStatus(), kEndOfFile);
    EXPECT_EQ(reader_.Header().signature, 0U);
    ExpectEnd();
}

TEST_F(FileReader, ReadsByTheHeaderThatItIsGiven) {
    Open(ScanFileImage::Raw(records_).SetFileEof(660));
    ExpectEnd();
    ScanFileHeader_s header = reader_.Header();
    header.fileEof = 660 + 2 * 4104;
    reader_.UseHeader(header);
    ExpectRecord(records_[0]);
    ExpectRecord(records_[1]);
    ExpectEnd();
}

TEST_F(FileReader, ReadsRecordsOfARawFileInAnyOrder) {
    Open(ScanFileImage::Raw(records_));
    std::vector<std::uint64_t> offsets;
    for (const TestRecord& record : records_) {
        offsets.push_back(reader_.Offset());
        ExpectRecord(record);
    }
    EXPECT_EQ(offsets, (std::vector<std::uint64_t>{660, 660 + 4104}));
    for (const std::size_t i : {1, 0, 0}) {
        ASSERT_EQ(reader_.ReadAt(offsets[i], &record_), 0);
        EXPECT_EQ(record_.blockNumber, records_[i].number);
    }
}

TEST_F(FileReader, GoesBackToTheFirstRecord) {
    for (const bool compressed : {false, true}) {
        Open(compressed ? ScanFileImage::Compressed(records_) : ScanFileImage::Raw(records_));
        for (int again = 0; again < 3; ++again) {
            ExpectRecord(records_[0]);
            ExpectRecord(records_[1]);
            ExpectEnd();
            EXPECT_EQ(reader_.Crc(), reader_.Header().crc);
            reader_.Rewind();
            EXPECT_FALSE(reader_.StreamEnded());
        }
        ASSERT_EQ(reader_.Close(), 0);
    }
}

TEST_F(FileReader, KnowsWhetherItCameToTheEndOfTheStream) {
    Open(ScanFileImage::Compressed(records_));
    EXPECT_FALSE(reader_.StreamEnded());
    ExpectRecord(records_[0]);
    EXPECT_FALSE(reader_.StreamEnded());
    ExpectRecord(records_[1]);
    ExpectEnd();
    EXPECT_TRUE(reader_.StreamEnded());
    ASSERT_EQ(reader_.Close(), 0);
    EXPECT_FALSE(reader_.StreamEnded());
}

TEST_F(FileReader, NeverComesToTheEndOfAStreamThatIsCutOrOfARawFile) {
    ScanFileImage cut = ScanFileImage::Compressed(records_);
    Open(cut.ShrinkSize(cut.Size() - 2));
    ExpectRecord(records_[0]);
    ExpectRecord(records_[1]);
    EXPECT_EQ(reader_.Read(&record_), 0x22115000 - 5);
    EXPECT_FALSE(reader_.StreamEnded());
    ASSERT_EQ(reader_.Close(), 0);
    Open(ScanFileImage::Raw({}));
    ExpectEnd();
    EXPECT_FALSE(reader_.StreamEnded());
}

}  // namespace
