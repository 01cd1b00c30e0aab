#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/openFiles.h"
#include "tests/support/readingTest.h"
#include "tests/support/writingTest.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using ::testing::EndsWith;

constexpr int kBufferTooSmall = 20004;
constexpr int kInvalidState = 20010;
constexpr int kEndOfFile = 20100;
constexpr int kNotFound = 20444;
constexpr int kNotUncompressed = 21209;
constexpr std::size_t kRecordBytes = 4104;
constexpr int kSystemError = 0x22BA5000;
constexpr int kInflateError = 0x22115000;

class ZSBFileReader : public support::ReadingTest {};

TEST_F(ZSBFileReader, ReadsRawRecordsAndTheirOffsetsToTheEnd) {
    OpenImage(ScanFileImage::Raw(records_));
    QuadAndBlock_s record{};
    unsigned long long offset = 0;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
        EXPECT_TRUE(record == records_[i]);
        EXPECT_EQ(offset, 660 + i * 4104);
    }
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(file_->QuadAndBlockRead(&record, &offset), kEndOfFile);
        EXPECT_EQ(offset, 660U + 2 * 4104);
    }
}

TEST_F(ZSBFileReader, ReadsCompressedRecordsToTheEnd) {
    const ScanFileImage image = ScanFileImage::Compressed(records_);
    OpenImage(image);
    QuadAndBlock_s record{};
    unsigned long long offset = 0;
    ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
    EXPECT_EQ(offset, 660U);
    EXPECT_TRUE(record == records_[0]);
    ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
    EXPECT_EQ(offset, image.Size());
    EXPECT_TRUE(record == records_[1]);
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(ReadStatus(), kEndOfFile);
    }
}

TEST_F(ZSBFileReader, TheEndOfTheStreamIsTheEndWhateverFollowsIt) {
    ScanFileImage image = ScanFileImage::Compressed(records_);
    OpenImage(image.Append("left behind the stream"));
    ExpectRecord(records_[0]);
    ExpectRecord(records_[1]);
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(ReadStatus(), kEndOfFile);
    }
}

TEST_F(ZSBFileReader, ReadsManyCompressedRecordsThroughItsSmallBuffer) {
    std::vector<TestRecord> many;
    unsigned seed = 1;
    for (std::uint64_t number = 0; number < 60; ++number) {
        many.push_back(MakeTestRecord(number));
        for (std::size_t i = 100; i < 4096; ++i) {
            seed = seed * 1'103'515'245 + 12'345;
            many.back().block[i] = static_cast<char>(seed >> 16);
        }
    }
    const ScanFileImage image = ScanFileImage::Compressed(many);
    ASSERT_GT(image.Size(), 10U * 16'384);
    OpenImage(image);
    for (const TestRecord& record : many) {
        ExpectRecord(record);
    }
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, AFileWithoutRecordsEndsAtOnce) {
    OpenImage(ScanFileImage::Raw({}));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    ASSERT_EQ(file_->OpenClose(), 0);
    OpenImage(ScanFileImage::Compressed({}));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, ReadsFromTheStartAgainAfterReopening) {
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
    ASSERT_EQ(file_->OpenClose(), 0);
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
}

TEST_F(ZSBFileReader, BothDataFlagsMakeRawRecordsThatEndAtDataBytes) {
    ScanFileImage image = ScanFileImage::Raw(records_, 0x005);
    image.SetDataBytes(660 + 4104);
    OpenImage(image);
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, TheRawFlagAloneLeavesTheEndAtFileEof) {
    ScanFileImage image = ScanFileImage::Raw(records_, 0x004);
    image.SetDataBytes(660);
    OpenImage(image);
    ExpectRecord(records_[0]);
    ExpectRecord(records_[1]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, DataReadTakesExactlyAndDataRead2AtMostWhatIsAsked) {
    OpenImage(ScanFileImage::Raw({records_[0]}));
    unsigned char bytes[5000];
    ASSERT_EQ(file_->DataRead(bytes, 8), 0);
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(file_->DataRead2(bytes, 4), 4U);
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(bytes), 4), "LEAF");
    EXPECT_EQ(file_->DataRead2(bytes, sizeof bytes), 4092U);
    EXPECT_EQ(file_->DataRead2(bytes, sizeof bytes), 0U);
    EXPECT_THAT(log_.Text(), EndsWith("ZSBFile::DataRead:: Success\n"
                                      "util/common/zsbFile[1869] Error reading destination file "
                                      "1388 status = 22ba5000\n"));
    EXPECT_EQ(file_->DataRead(bytes, 1), kSystemError);
    EXPECT_THAT(log_.Text(), EndsWith("ZSBFile::DataRead:: Success\n"
                                      "util/common/zsbFile[1837] Error reading destination file "
                                      "1\n"));
}

TEST_F(ZSBFileReader, DataReadOffsetUpdateSkipsBytes) {
    OpenImage(ScanFileImage::Raw(records_));
    file_->DataReadOffsetUpdate(4104);
    ExpectRecord(records_[1]);
}

TEST_F(ZSBFileReader, ARecordOfAnotherLengthIsToldAndNothingFollowsIt) {
    const ScanFileImage whole = ScanFileImage::Raw({records_[0]});
    OpenImage(ScanFileImage::CompressedBytes(whole.Bytes().substr(660) + std::string(1000, 'x')));
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kBufferTooSmall);
    EXPECT_THAT(
        log_.Text(),
        EndsWith("util/common/zsbFile[1946] Size should be 4104 but is 3e8.  Error: 4e24\n"));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    unsigned char bytes[kRecordBytes];
    EXPECT_EQ(file_->QuadAndBlockReadAndInflate(bytes), kInvalidState);
    EXPECT_THAT(log_.Text(), EndsWith("util/common/zsbFile[1889] Error: 20010\n"));
}

TEST_F(ZSBFileReader, AnIncompleteRecordStaysIncomplete) {
    const ScanFileImage whole = ScanFileImage::Raw({records_[0]});
    ScanFileImage image = ScanFileImage::CompressedBytes(whole.Bytes().substr(660, 1000));
    OpenImage(image.Append("tail").SetFileEof(image.Size()));
    EXPECT_EQ(ReadStatus(), kBufferTooSmall);
    EXPECT_EQ(ReadStatus(), kInvalidState);
    EXPECT_EQ(ReadStatus(), kInvalidState);
}

TEST_F(ZSBFileReader, TellsZlibsResultForDamagedData) {
    ScanFileImage image = ScanFileImage::Compressed(records_);
    OpenImage(image.FlipByte(660));
    EXPECT_EQ(ReadStatus(), kInflateError - 3);
    EXPECT_THAT(log_.Text(),
                EndsWith("util/common/zsbFile[1924] Error: 22114ffd(err is fffffffd).\n"));
}

TEST_F(ZSBFileReader, ReportsTheLastFileFlagAsItStands) {
    for (const auto& [flags, last] :
         {std::pair{0x000U, 0x000U}, {0x002U, 0x002U}, {0x3FFU & ~0x002U, 0x000U}}) {
        OpenImage(ScanFileImage::Raw({}, flags));
        EXPECT_EQ(file_->LastFile(), last) << flags;
        ASSERT_EQ(file_->OpenClose(), 0);
        EXPECT_EQ(file_->LastFile(), 0U);
    }
}

TEST_F(ZSBFileReader, CountsTheRecordsThatDataBytesClaims) {
    const std::vector<std::pair<std::uint64_t, unsigned long long>> claims{
        {0, 0},
        {659, 0},
        {660, 0},
        {660 + 4103, 0},
        {660 + 4104, 1},
        {10'486'380, 2555},
        {~std::uint64_t{0}, (~std::uint64_t{0} - 660) / 4104}};
    for (const auto& [claim, count] : claims) {
        OpenImage(ScanFileImage::Raw({}).SetDataBytes(claim));
        EXPECT_EQ(file_->BlocksInFileGet(), count) << claim;
        ASSERT_EQ(file_->OpenClose(), 0);
        EXPECT_EQ(file_->BlocksInFileGet(), 0U);
    }
}

TEST_F(ZSBFileReader, CopiesThePoolNameIntoABufferOfAnySize) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(u"DATA"));
    for (const unsigned size : {1U, 2U, 4U, 5U, 64U, 128U}) {
        std::string buffer(size + 8, '#');
        file_->SFHGet_PoolName(buffer.data(), size);
        std::string wanted = std::string("DATA").substr(0, size - 1);
        wanted.resize(size, '\0');
        EXPECT_EQ(buffer, wanted + "########") << size;
    }
    char untouched = '#';
    file_->SFHGet_PoolName(&untouched, 0);
    EXPECT_EQ(untouched, '#');
}

TEST_F(ZSBFileReader, CopiesAPoolNameThatFillsAllItsUnits) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(std::u16string(256, u'x')));
    std::string buffer(300, '#');
    file_->SFHGet_PoolName(buffer.data(), 300);
    EXPECT_STREQ(buffer.c_str(), std::string(256, 'x').c_str());
    EXPECT_EQ(buffer.back(), '\0');
    file_->SFHGet_PoolName(buffer.data(), 128);
    EXPECT_STREQ(buffer.c_str(), std::string(127, 'x').c_str());
}

TEST_F(ZSBFileReader, TakesTheLowByteOfEachUnitOfThePoolName) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(u"\u0144\u0161t\u00E9"));
    char buffer[8];
    file_->SFHGet_PoolName(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "Dat\xE9");
}

TEST_F(ZSBFileReader, ReadsAFileThatIsCompletedWhileItIsOpen) {
    for (const ScanFileImage& image :
         {ScanFileImage::Raw(records_), ScanFileImage::Compressed(records_)}) {
        for (const std::size_t size : {0, 300, 659}) {
            ScanFileImage part = image;
            OpenImage(part.ShrinkSize(size));
            EXPECT_EQ(ReadStatus(), kEndOfFile);
            image.Write(Path("image.ZRB"));
            ASSERT_EQ(file_->ReadAndValidateHeader(), 0);
            EXPECT_EQ(file_->BlocksInFileGet(), 2U);
            ExpectRecord(records_[0]);
            ExpectRecord(records_[1]);
            EXPECT_EQ(ReadStatus(), kEndOfFile);
            ASSERT_EQ(file_->OpenClose(), 0);
        }
    }
}

TEST_F(ZSBFileReader, ReadsTheHeaderThatTheFileHasNow) {
    OpenImage(ScanFileImage::Raw({}));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    std::vector<TestRecord> growing;
    for (std::uint64_t number = 1; number < 5; ++number) {
        growing.push_back(MakeTestRecord(number));
        ScanFileImage::Raw(growing).Write(Path("image.ZRB"));
        ASSERT_EQ(file_->ReadAndValidateHeader(), 0);
        EXPECT_EQ(file_->BlocksInFileGet(), number);
    }
    for (const TestRecord& record : growing) {
        ExpectRecord(record);
    }
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, ReadingTheHeaderAgainLeavesThePlaceInACompressedFile) {
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
    ASSERT_EQ(file_->ReadAndValidateHeader(), 0);
    ExpectRecord(records_[1]);
}

TEST_F(ZSBFileReader, ReadsSingleRecordsByTheOffsetsItReported) {
    ScanFileImage::Raw(records_).Write(Path("a.ZRB"));
    ASSERT_EQ(file_->RandomOpen(Path("a.ZRB")), 0);
    QuadAndBlock_s record{};
    for (const std::size_t i : {1, 0, 1, 1}) {
        ASSERT_EQ(file_->RandomRead(static_cast<unsigned>(660 + i * 4104), &record), 0);
        EXPECT_TRUE(record == records_[i]);
    }
    EXPECT_EQ(file_->RandomRead(660 + 2 * 4104, &record), kEndOfFile);
    EXPECT_EQ(file_->RandomRead(0xFFFFFFFF, &record), kEndOfFile);
    EXPECT_EQ(file_->RandomRead(660 + 4104 + 1, &record), kSystemError);
    EXPECT_EQ(file_->RandomClose(), 0);
}

TEST_F(ZSBFileReader, RandomOpenClosesWhatIsOpen) {
    ScanFileImage::Raw({records_[0]}).Write(Path("a.ZRB"));
    ScanFileImage::Raw({records_[1]}).Write(Path("b.ZRB"));
    ASSERT_EQ(file_->RandomOpen(Path("a.ZRB")), 0);
    ASSERT_EQ(file_->RandomOpen(Path("b.ZRB")), 0);
    QuadAndBlock_s record{};
    ASSERT_EQ(file_->RandomRead(660, &record), 0);
    EXPECT_TRUE(record == records_[1]);
    EXPECT_TRUE(support::DescriptorsOf(Path("a.ZRB")).empty());
    EXPECT_EQ(file_->RandomOpen(Path("missing.ZRB")), kNotFound);
    EXPECT_EQ(file_->RandomRead(660, &record), kInvalidState);
}

TEST_F(ZSBFileReader, RandomOpenRefusesACompressedFileAndLeavesNoneOpen) {
    ScanFileImage::Compressed(records_).Write(Path("C0000000.ZRB"));
    EXPECT_EQ(file_->RandomOpen(Path("C0000000.ZRB")), kNotUncompressed);
    EXPECT_EQ(file_->OpenClose(), kInvalidState);
    EXPECT_TRUE(support::DescriptorsOf(Path("C0000000.ZRB")).empty());
    ScanFileImage::Raw(records_, 0x005).Write(Path("C0000000.ZRB"));
    EXPECT_EQ(file_->RandomOpen(Path("C0000000.ZRB")), 0);
}

TEST_F(ZSBFileReader, ReadsASetThatItsOwnWriterMade) {
    const auto writer = support::MakeWriter(directory_.Path(), {.compress = true});
    ASSERT_EQ(writer->CreateNext(false), 0);
    QuadAndBlock_s record{};
    record.blockNumber = records_[0].number;
    records_[0].block.copy(record.block, sizeof record.block);
    ASSERT_EQ(writer->QuadAndBlockWrite(&record), 0);
    ASSERT_EQ(writer->CreateClose(true, false, false, false, nullptr), 0);
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(CurrentName(), "C0000000.ZRB");
    EXPECT_EQ(file_->BlocksInFileGet(), 1U);
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

}  // namespace
