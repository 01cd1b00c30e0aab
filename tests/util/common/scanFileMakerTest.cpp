#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <system_error>

#include "tests/support/fileSizeLimit.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanFileMaker.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileParts;
using support::TestRecord;

QuadAndBlock_s Record(std::uint64_t block) {
    const TestRecord made = MakeTestRecord(block);
    QuadAndBlock_s record{.blockNumber = made.number, .block = {}};
    std::memcpy(record.block, made.block.data(), sizeof record.block);
    return record;
}

class ScanFileMakerTest : public testing::Test {
  protected:
    ScanFileParts Make(const ScanForm& form, std::uint64_t records, std::uint32_t flags) {
        ScanFileHeader_s header{};
        header.flags = flags;
        header.crc = 4711;
        ScanFileMaker maker(path_, form);
        for (std::uint64_t block = 0; block < records; ++block) {
            maker.Append(Record(block));
        }
        maker.Finish(header);
        return ScanFileParts(path_);
    }

    /// errno of making a raw file of a few records.
    int Failure() {
        try {
            Make({}, 200, 0);
        } catch (const std::system_error& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(path_));
            return error.code().value();
        }
        return 0;
    }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("T0000000.ZSB");
};

TEST_F(ScanFileMakerTest, WritesRecordsAsTheyAre) {
    const ScanFileParts made = Make({}, 300, 0x041 | 0x202);
    EXPECT_EQ(made.FileEof(), 660U + 300 * 4104);
    EXPECT_EQ(made.Bytes().size(), made.FileEof());
    EXPECT_EQ(made.Flags(), 0x202U);
    EXPECT_EQ(made.Crc(), 4711U);
    EXPECT_EQ(made.Data().substr(299 * 4104 + 8, 4096), MakeTestRecord(299).block);
}

TEST_F(ScanFileMakerTest, WritesOneStreamOfThem) {
    const std::string raw(Make({}, 300, 0).Data());
    std::filesystem::remove(path_);
    const ScanFileParts made = Make({.compressed = true}, 300, 0x202);
    EXPECT_EQ(made.Flags(), 0x243U);
    EXPECT_EQ(made.FileEof(), made.Bytes().size());
    EXPECT_EQ(made.InflatedData(), raw);
}

TEST_F(ScanFileMakerTest, ReplacesNothing) {
    support::WriteFile(path_, "there");
    EXPECT_EQ(Failure(), EEXIST);
    EXPECT_EQ(support::ReadFile(path_), "there");
}

TEST_F(ScanFileMakerTest, TellsAFileThatCannotBeWritten) {
    const support::FileSizeLimit limit(300'000);
    EXPECT_EQ(Failure(), EFBIG);
}

TEST_F(ScanFileMakerTest, RefusesALevelThatIsNone) {
    EXPECT_THROW(ScanFileMaker(path_, {.compressed = true, .level = 10}), std::invalid_argument);
}

TEST_F(ScanFileMakerTest, ReadsNoHeaderWhereThereIsNone) {
    EXPECT_EQ(ReadScanFileHeader(path_).signature, 0U);
    support::ScanFileImage::Raw({}).SetNumber(64, 4, 12).Write(path_);
    EXPECT_EQ(ReadScanFileHeader(path_).fileNumber, 12U);
}

}  // namespace
