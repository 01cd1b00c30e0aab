#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/fileSizeLimit.h"
#include "tests/support/openFiles.h"
#include "tests/support/writingTest.h"

namespace {

using support::RegisterOver;
using support::ScanFileParts;
using ::testing::HasSubstr;

constexpr int kSystemError = 0x22BA5000;

class FailingWriter : public support::WritingTest {
  protected:
    /// Makes every write to the file of this name fail for want of space.
    void FillDisk(const std::string& name) {
        std::filesystem::create_symlink("/dev/full", Path(name));
    }
};

TEST_F(FailingWriter, ReportsAFileThatCannotBeCreatedAndStaysIdle) {
    std::filesystem::create_directory(Path("T0000000.ZSB"));
    const auto file = Make();
    EXPECT_EQ(file->CreateNext(true), kSystemError + EISDIR);
    EXPECT_THAT(log_.Text(), HasSubstr("Could not create " + Path("T0000000.ZSB") +
                                       " because Is a directory\n"));
    std::string name;
    file->CurrentFullName(name);
    EXPECT_EQ(name, Path("T0000000.ZSB"));
    EXPECT_EQ(Close(*file), 20010);
    std::filesystem::remove(Path("T0000000.ZSB"));
    EXPECT_EQ(file->CreateNext(true), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").FileNumber(), 0U);
}

TEST_F(FailingWriter, ReportsARawRecordThatDoesNotFitAndMarksTheFile) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    const std::string whole = records_;
    {
        const support::FileSizeLimit limit(660 + 4104 + 100);
        EXPECT_EQ(Append(*file, 2, support::MakeBlock("LEAF")), kSystemError + EFBIG);
    }
    EXPECT_THAT(log_.Text(),
                HasSubstr("ZSBFile::Write:: File too large\n"
                          "util/common/zsbFile[480] Error writing to destination file 1008 "
                          "bytes.\n"));
    unsigned long crc = 0;
    EXPECT_EQ(Close(*file, &crc), 0);
    const ScanFileParts parts = Parts("T0000000.ZSB");
    EXPECT_EQ(parts.Flags(), 0x280U);
    EXPECT_EQ(parts.DataBytes(), 660U + 4104);
    EXPECT_EQ(parts.FileEof(), 660U + 4104);
    EXPECT_EQ(parts.Data().substr(0, 4104), whole);
    // The failed record still counts in the CRC.
    EXPECT_EQ(parts.Crc(), RegisterOver(records_));
    EXPECT_EQ(crc, RegisterOver(records_));
}

TEST_F(FailingWriter, ReturnsMinus2WhenCompressedBytesDoNotFit) {
    const auto file = Make({.compress = true, .level = 0});
    ASSERT_EQ(file->CreateNext(true), 0);
    int status = 0;
    {
        const support::FileSizeLimit limit(660 + 16'384);
        for (unsigned i = 0; i < 40 && status == 0; ++i) {
            status = Append(*file, i, support::NoiseBlock(i));
        }
    }
    EXPECT_EQ(status, -2);
    EXPECT_THAT(log_.Text(),
                HasSubstr("ZSBFile::Write:: File too large\n"
                          "util/common/zsbFile[480] Error writing to destination file 4000 "
                          "bytes.\n"));
    EXPECT_EQ(Close(*file), 0);
    EXPECT_THAT(log_.Text(), HasSubstr(" Deflate should report Z_STREAM_END instead fffffffb\n"));
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x2C1U);
}

TEST_F(FailingWriter, BeginsTheNextFileAfreshAfterAFailedOne) {
    const auto file = Make({.compress = true, .level = 0});
    ASSERT_EQ(file->CreateNext(true), 0);
    {
        const support::FileSizeLimit limit(660);
        for (unsigned i = 0; i < 10; ++i) {
            Append(*file, i, support::NoiseBlock(i));
        }
        Close(*file);
    }
    records_.clear();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 77, support::NoiseBlock(77)), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x2C1U);
    const ScanFileParts parts = Parts("C0000001.ZSB");
    EXPECT_EQ(parts.Flags(), 0x241U);
    EXPECT_EQ(parts.InflatedData(), records_);
    EXPECT_EQ(parts.Crc(), RegisterOver(records_));
}

TEST_F(FailingWriter, NoticesAtTheCloseThatCompressedBytesDoNotFit) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::NoiseBlock(1)), 0);
    int status = 0;
    {
        const support::FileSizeLimit limit(660 + 100);
        status = Close(*file);
    }
    EXPECT_EQ(status, -2);
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x2C1U);
    EXPECT_EQ(file->CreateNext(true), 0);
    EXPECT_TRUE(std::filesystem::exists(Path("C0000001.ZSB")));
}

TEST_F(FailingWriter, TellsTheHeaderThatCannotBeWrittenBeforeCompressedBytesThatDoNotFit) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::NoiseBlock(1)), 0);
    unsigned long crc = 12345;
    {
        const support::FileSizeLimit limit(0);
        EXPECT_EQ(Close(*file, &crc), kSystemError + EFBIG);
    }
    EXPECT_EQ(crc, 12345U);
    EXPECT_THAT(log_.Text(), HasSubstr("ZSBFile::Write:: File too large\n"));
    EXPECT_THAT(log_.Text(), HasSubstr("ZSBFile::WriteHeader(): File too large\n"));
    EXPECT_EQ(file->CreateNext(true), 0);
}

TEST_F(FailingWriter, TellsAFlushThatFailsAtTheCloseWhateverItsUserRecorded) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::NoiseBlock(1)), 0);
    file->QuadAndBlockErrorSet(20100);
    {
        const support::FileSizeLimit limit(660 + 100);
        EXPECT_EQ(Close(*file), -2);
    }
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x2C1U);
}

TEST_F(FailingWriter, TellsAnErrorOfARecordOnceAlsoWhereItsUserRecordedOneBefore) {
    const auto file = Make({.compress = true, .level = 0});
    ASSERT_EQ(file->CreateNext(true), 0);
    file->QuadAndBlockErrorSet(20100);
    const support::FileSizeLimit limit(660);
    int status = 0;
    for (unsigned i = 0; i < 10 && status == 0; ++i) {
        status = Append(*file, i, support::NoiseBlock(i));
    }
    EXPECT_EQ(status, -2);
    EXPECT_EQ(Close(*file), 0);
}

TEST_F(FailingWriter, CreatesAFileWhoseHeaderCannotBeWrittenAndReportsItAtTheClose) {
    FillDisk("T0000000.ZSB");
    const auto file = Make();
    EXPECT_EQ(file->CreateNext(true), 0);
    const std::string headerFailure =
        "ZSBFile::WriteHeader(): No space left on device\n"
        "util/common/zsbFile[503] Error writing to destination file 660 bytes.\n";
    EXPECT_THAT(log_.Text(), HasSubstr(headerFailure));
    EXPECT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), kSystemError + ENOSPC);
    unsigned long crc = 12345;
    EXPECT_EQ(Close(*file, &crc), kSystemError + ENOSPC);
    EXPECT_EQ(crc, 12345U);
    EXPECT_EQ(log_.Text().substr(log_.Text().size() - headerFailure.size()), headerFailure);
    EXPECT_FALSE(file->HasName());
    EXPECT_EQ(file->CreateNext(true), 0);
    EXPECT_EQ(Parts("T0000001.ZSB").FileNumber(), 1U);
}

TEST_F(FailingWriter, KeepsTheFirstErrorOfAFileForItsHeaderUntilTheNext) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    file->QuadAndBlockErrorSet(20100);
    file->QuadAndBlockErrorSet(0);
    ASSERT_EQ(Close(*file), 0);
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Close(*file), 0);
    ASSERT_EQ(file->CreateNext(true), 0);
    file->QuadAndBlockErrorSet(20100);
    file->QuadAndBlockErrorClear();
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Flags(), 0x280U);
    EXPECT_EQ(Parts("T0000001.ZSB").Flags(), 0x200U);
    EXPECT_EQ(Parts("T0000002.ZSB").Flags(), 0x200U);
}

TEST_F(FailingWriter, FlagsTheFileBehindAFailedOneAtCreationAsAnyOther) {
    for (const bool compress : {false, true}) {
        const auto file = Make({.compress = compress});
        ASSERT_EQ(file->CreateNext(true), 0);
        file->QuadAndBlockErrorSet(20100);
        ASSERT_EQ(Close(*file), 0);
        ASSERT_EQ(file->CreateNext(true), 0);
        EXPECT_EQ(Parts(compress ? "C0000000.ZSB" : "T0000000.ZSB").Flags(),
                  compress ? 0x2C1U : 0x280U);
        EXPECT_EQ(Parts(compress ? "C0000001.ZSB" : "T0000001.ZSB").Flags(),
                  compress ? 0x241U : 0x200U);
    }
}

TEST_F(FailingWriter, RefusesARecordBehindTheEndOfItsCompressedStream) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    const std::string whole = records_;
    ASSERT_EQ(file->DataWriteFlush(), 0);
    const std::size_t before = log_.Text().size();
    EXPECT_EQ(Append(*file, 2, support::MakeBlock("LEAF")), -2);
    EXPECT_EQ(log_.Text().substr(before), "util/common/zsbFile[323] Deflate error: fffffffe\n");
    EXPECT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x2C1U);
    EXPECT_EQ(Parts("C0000000.ZSB").DataBytes(), 660U + 4104);
    EXPECT_EQ(Parts("C0000000.ZSB").InflatedData(), whole);
}

/// Puts /dev/null, opened for reading alone, in the place of the file that a writer has open.
void TakeWritingAway(const std::string& path) {
    const std::vector<int> found = support::DescriptorsOf(path);
    ASSERT_EQ(found.size(), 1U);
    const int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(readOnly, 0);
    ASSERT_EQ(dup2(readOnly, found[0]), found[0]);
    close(readOnly);
}

TEST_F(FailingWriter, ReportsAHeaderThatCannotBeWrittenAtTheClose) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    TakeWritingAway(Path("T0000000.ZSB"));
    EXPECT_EQ(Close(*file), kSystemError + EBADF);
    EXPECT_THAT(log_.Text(), HasSubstr("ZSBFile::WriteHeader(): Bad file descriptor\n"));
    // What was there before still reads as an empty file.
    EXPECT_EQ(Parts("T0000000.ZSB").DataBytes(), 660U);
    EXPECT_EQ(Parts("T0000000.ZSB").CloseTime(), 0U);
}

}  // namespace
