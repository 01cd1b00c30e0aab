#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;

constexpr int kMediaCorrupted = 20012;
constexpr int kEndOfFile = 20100;
constexpr int kInvalid = 0x22DA5E25;
constexpr int kSystemError = 0x22BA5000;
constexpr int kNoSuchBlock = -1;
static_assert(static_cast<unsigned>(kNoSuchBlock) == 0xFFFFFFFF);

class ZSBFileCheck : public testing::Test {
  protected:
    void Open(const ScanFileImage& image) {
        image.Write(path_);
        ASSERT_EQ(file_.Open(path_), 0);
    }

    int Validate(const ScanFileImage& image) {
        file_.OpenClose();
        Open(image);
        return file_.OpenValidate();
    }

    int ReadStatus() {
        QuadAndBlock_s record{};
        return file_.QuadAndBlockRead(&record, nullptr);
    }

    bool Found(const TestRecord& wanted) const {
        return found_.blockNumber == wanted.number &&
               std::string_view(found_.block, sizeof found_.block) == wanted.block;
    }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("image.ZRB");
    support::CapturedLog log_;
    const std::unique_ptr<ZSBFile> opened_ = ZSBFile::ForReading(directory_.Path().c_str());
    ZSBFile& file_ = *opened_;
    QuadAndBlock_s found_{};
    const std::vector<TestRecord> records_{MakeTestRecord(3), MakeTestRecord(7, "BRCH"),
                                           MakeTestRecord(9, "PASM")};
};

TEST_F(ZSBFileCheck, ASoundFileIsValid) {
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_)), 0);
    EXPECT_EQ(Validate(ScanFileImage::Compressed(records_)), 0);
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_, 0x005)), 0);
}

TEST_F(ZSBFileCheck, AFileWithoutRecordsIsInvalid) {
    EXPECT_EQ(Validate(ScanFileImage::Raw({})), kInvalid);
    EXPECT_EQ(Validate(ScanFileImage::Compressed({})), kInvalid);
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_).SetDataBytes(660 + 4103)), kInvalid);
}

TEST_F(ZSBFileCheck, ABadHeaderOpensAndIsFoundByTheCheck) {
    for (const std::size_t offset : {std::size_t{0}, std::size_t{3}, ScanFileImage::kTrailerAt,
                                     ScanFileImage::kTrailerAt + 3}) {
        EXPECT_EQ(Validate(ScanFileImage::Raw(records_).FlipByte(offset)), kMediaCorrupted);
        EXPECT_EQ(file_.OpenSearch(&found_, 3), kMediaCorrupted);
    }
}

TEST_F(ZSBFileCheck, AcceptsTheHeaderVersions1And2) {
    for (const auto& [version, status] : {std::pair{0U, kMediaCorrupted},
                                          {1U, 0},
                                          {2U, 0},
                                          {3U, kMediaCorrupted},
                                          {0x0102U, kMediaCorrupted}}) {
        EXPECT_EQ(
            Validate(ScanFileImage::Raw(records_).SetNumber(ScanFileImage::kVersionAt, 2, version)),
            status)
            << version;
    }
}

TEST_F(ZSBFileCheck, TheHeaderRevisionDoesNotMatter) {
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_).SetNumber(6, 2, 0xFFFF)), 0);
}

TEST_F(ZSBFileCheck, AFileShorterThanAHeaderIsAtItsEnd) {
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_).ShrinkSize(659)), kEndOfFile);
    EXPECT_EQ(file_.OpenSearch(&found_, 3), kEndOfFile);
}

TEST_F(ZSBFileCheck, ARecordedBadHeaderStaysWithItsFile) {
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_).FlipByte(0)), kMediaCorrupted);
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_)), 0);
}

TEST_F(ZSBFileCheck, AWrongChecksumIsFoundAfterAllRecordsHaveBeenRead) {
    EXPECT_EQ(Validate(ScanFileImage::Raw(records_).FlipByte(ScanFileImage::kCrcAt, 1)), kInvalid);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    EXPECT_EQ(Validate(ScanFileImage::Compressed(records_).FlipByte(ScanFileImage::kCrcAt, 1)),
              kInvalid);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileCheck, AFailedReadComesBeforeTheChecksum) {
    const ScanFileImage whole = ScanFileImage::Raw(records_);
    EXPECT_EQ(Validate(ScanFileImage(whole).ShrinkSize(whole.Size() - 1)), kSystemError);
    EXPECT_EQ(Validate(ScanFileImage(whole).SetFileEof(660 + 2 * 4104)), kEndOfFile);
}

TEST_F(ZSBFileCheck, ChecksOnlyTheRecordsThatDataBytesClaims) {
    ScanFileImage image = ScanFileImage::Raw(records_);
    EXPECT_EQ(Validate(image.SetDataBytes(660 + 2 * 4104)), kInvalid);
    EXPECT_EQ(ReadStatus(), 0);
    EXPECT_EQ(Validate(image.SetDataBytes(660 + 4 * 4104)), kEndOfFile);
    EXPECT_EQ(Validate(image.SetDataBytes(~std::uint64_t{0})), kEndOfFile);
}

TEST_F(ZSBFileCheck, TheOrderOfTheBlocksWarnsAndFailsNothing) {
    const struct {
        std::vector<std::uint64_t> numbers;
        std::uint64_t warnings;
    } rows[] = {{{5, 5}, 1},    {{0, 0}, 0},       {{5, 6, 7}, 0},
                {{5, 4, 3}, 2}, {{0, 5, 0, 6}, 1}, {{~std::uint64_t{0}, 1}, 1}};
    for (const auto& row : rows) {
        std::vector<TestRecord> records;
        for (const std::uint64_t number : row.numbers) {
            records.push_back(MakeTestRecord(number));
        }
        EXPECT_EQ(Validate(ScanFileImage::Raw(records)), 0);
        EXPECT_EQ(file_.WarningCount(), row.warnings) << row.numbers[0] << ' ' << row.numbers[1];
    }
}

TEST_F(ZSBFileCheck, BlocksOfNoKnownTypeWarnUnlessTypesAreUncheckedAndFailNothing) {
    const std::vector<TestRecord> records{MakeTestRecord(1, "none"), MakeTestRecord(2)};
    EXPECT_EQ(Validate(ScanFileImage::Raw(records)), 0);
    EXPECT_EQ(file_.WarningCount(), 1U);
    EXPECT_EQ(Validate(ScanFileImage::Raw(records, 0x102)), 0);
    EXPECT_EQ(file_.WarningCount(), 0U);
}

TEST_F(ZSBFileCheck, ASearchWarnsOfTheTypeOfItsFindAndNotOfItsOrder) {
    Open(ScanFileImage::Raw({MakeTestRecord(5), MakeTestRecord(5), MakeTestRecord(4, "none")}));
    EXPECT_EQ(file_.OpenSearch(&found_, 4), 0);
    EXPECT_EQ(file_.WarningCount(), 2U);
}

TEST_F(ZSBFileCheck, CountsTheWarningsSinceTheFileWasOpened) {
    file_.QuadAndBlockWarningSet("of no file");
    EXPECT_EQ(file_.WarningCount(), 1U);
    Open(ScanFileImage::Raw({MakeTestRecord(5), MakeTestRecord(5)}));
    EXPECT_EQ(file_.WarningCount(), 0U);
    EXPECT_EQ(file_.OpenValidate(), 0);
    EXPECT_EQ(file_.OpenValidate(), 0);
    ASSERT_EQ(file_.OpenClose(), 0);
    EXPECT_EQ(file_.WarningCount(), 2U);
}

TEST_F(ZSBFileCheck, LeavesTheFileBehindItsLastRecordUntilItIsReopened) {
    EXPECT_EQ(Validate(ScanFileImage::Compressed(records_)), 0);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    ASSERT_EQ(file_.OpenClose(), 0);
    ASSERT_EQ(file_.Open(path_), 0);
    EXPECT_EQ(ReadStatus(), 0);
}

TEST_F(ZSBFileCheck, BeginsAtTheFirstRecordWhateverWasReadBefore) {
    Open(ScanFileImage::Raw(records_));
    ASSERT_EQ(ReadStatus(), 0);
    ASSERT_EQ(ReadStatus(), 0);
    EXPECT_EQ(file_.OpenValidate(), 0);
    EXPECT_EQ(file_.OpenSearch(&found_, 3), 0);
}

/// What both checks say of the file that is open, each twice and one behind the other.
void ExpectSameEachTime(ZSBFile& file, int validity, int search) {
    QuadAndBlock_s found{};
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(file.OpenValidate(), validity);
        EXPECT_EQ(file.OpenValidate(), validity);
        EXPECT_EQ(file.OpenSearch(&found, 7), search);
        EXPECT_EQ(found.blockNumber, search == 0 ? 7U : 0U);
        EXPECT_EQ(file.OpenSearch(&found, 7), search);
    }
}

TEST_F(ZSBFileCheck, BeginsACompressedFileAtTheFirstRecordEachTime) {
    Open(ScanFileImage::Compressed(records_));
    ExpectSameEachTime(file_, 0, 0);
    ASSERT_EQ(file_.OpenSearch(&found_, 3), 0);
    ASSERT_EQ(ReadStatus(), 0);
    ExpectSameEachTime(file_, 0, 0);
    EXPECT_EQ(file_.OpenSearch(&found_, 4), kNoSuchBlock);
    EXPECT_EQ(file_.OpenSearch(&found_, 9), 0);
    EXPECT_TRUE(Found(records_[2]));
}

TEST_F(ZSBFileCheck, BeginsADamagedCompressedFileAtTheFirstRecordEachTime) {
    ScanFileImage cut = ScanFileImage::CompressedBytes(std::string(4104 + 1000, 'x'));
    Open(cut.SetDataBytes(660 + 2 * 4104));
    ExpectSameEachTime(file_, 20004, 20004);
    ASSERT_EQ(file_.OpenClose(), 0);
    Open(ScanFileImage::Compressed(records_).FlipByte(660));
    ExpectSameEachTime(file_, 0x22115000 - 3, 0x22115000 - 3);
}

TEST_F(ZSBFileCheck, FindsABlockInARawAndInACompressedFile) {
    for (const ScanFileImage& image :
         {ScanFileImage::Raw(records_), ScanFileImage::Compressed(records_)}) {
        for (const TestRecord& record : records_) {
            Open(image);
            found_ = {};
            EXPECT_EQ(file_.OpenSearch(&found_, record.number), 0);
            EXPECT_TRUE(Found(record));
            ASSERT_EQ(file_.OpenClose(), 0);
        }
    }
}

TEST_F(ZSBFileCheck, FindsTheFirstRecordWithoutReadingFurther) {
    Open(ScanFileImage::Raw(records_).ShrinkSize(660 + 4104));
    EXPECT_EQ(file_.OpenSearch(&found_, 3), 0);
    EXPECT_TRUE(Found(records_[0]));
    EXPECT_EQ(file_.OpenSearch(&found_, 7), kSystemError);
}

TEST_F(ZSBFileCheck, GoesOnBehindTheRecordItFound) {
    Open(ScanFileImage::Raw(records_));
    ASSERT_EQ(file_.OpenSearch(&found_, 3), 0);
    ASSERT_EQ(file_.QuadAndBlockRead(&found_, nullptr), 0);
    EXPECT_TRUE(Found(records_[1]));
}

TEST_F(ZSBFileCheck, FindsTheFirstOfTwoRecordsOfABlock) {
    TestRecord other = MakeTestRecord(3);
    other.block.back() = '!';
    Open(ScanFileImage::Raw({records_[0], other}));
    ASSERT_EQ(file_.OpenSearch(&found_, 3), 0);
    EXPECT_TRUE(Found(records_[0]));
}

TEST_F(ZSBFileCheck, FindsABlockInAFileWithAWrongChecksum) {
    Open(ScanFileImage::Raw(records_).FlipByte(ScanFileImage::kCrcAt));
    EXPECT_EQ(file_.OpenSearch(&found_, 9), 0);
}

TEST_F(ZSBFileCheck, TellsABlockThatIsNotThereFromAWrongChecksum) {
    Open(ScanFileImage::Raw(records_));
    EXPECT_EQ(file_.OpenSearch(&found_, 4), kNoSuchBlock);
    ASSERT_EQ(file_.OpenClose(), 0);
    Open(ScanFileImage::Raw(records_).FlipByte(ScanFileImage::kCrcAt));
    EXPECT_EQ(file_.OpenSearch(&found_, 4), kInvalid);
}

TEST_F(ZSBFileCheck, LeavesTheOutputAloneWhenNothingIsFound) {
    Open(ScanFileImage::Raw(records_));
    found_.blockNumber = 42;
    EXPECT_EQ(file_.OpenSearch(&found_, 4), kNoSuchBlock);
    EXPECT_EQ(found_.blockNumber, 42U);
}

TEST_F(ZSBFileCheck, FindsNothingInAFileWithoutRecords) {
    Open(ScanFileImage::Raw({}));
    EXPECT_EQ(file_.OpenSearch(&found_, 0), kInvalid);
}

}  // namespace
