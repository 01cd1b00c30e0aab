#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "tests/support/fileBytes.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/openFiles.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/fileDescriptor.h"
#include "util/common/positionedStream.h"

namespace {

class Stream : public testing::Test {
  protected:
    std::string Read(std::size_t size) {
        std::string bytes(size, '?');
        read_ = stream_.Read(bytes.data(), size);
        bytes.resize(read_.count);
        return bytes;
    }

    static void ExpectWhole(const StreamTransfer& transfer, std::size_t size) {
        EXPECT_EQ(transfer.count, size);
        EXPECT_EQ(transfer.error, 0);
        EXPECT_FALSE(transfer.ended);
    }

    void ExpectWritten(std::string_view bytes) {
        ExpectWhole(stream_.Write(bytes.data(), bytes.size()), bytes.size());
    }

    /// Moves the descriptor behind the stream's back: only a seek finds the place again.
    void MoveDescriptor(off_t offset) { lseek(stream_.Descriptor(), offset, SEEK_SET); }

    support::TemporaryDirectory directory_;
    std::string path_ = directory_.File("stream");
    PositionedStream stream_;
    StreamTransfer read_;  // how the last read ended
};

TEST_F(Stream, ReportsWhyAFileCannotBeOpened) {
    EXPECT_EQ(stream_.Open(path_.c_str(), "r", 0), ENOENT);
    EXPECT_FALSE(stream_.IsOpen());
    EXPECT_EQ(stream_.Open(directory_.Path().c_str(), "w", 0), EISDIR);
}

TEST_F(Stream, ReportsWhyAFileCannotBeOpenedAndNotHowTheOldOneCloses) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    ExpectWritten("abc");
    EXPECT_EQ(stream_.Open(path_.c_str(), "r", 0), ENOENT);
    EXPECT_FALSE(stream_.IsOpen());
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    ExpectWritten("abc");
    EXPECT_EQ(stream_.Adopt(FileDescriptor(), "rb", 0), EBADF);
    EXPECT_FALSE(stream_.IsOpen());
}

TEST_F(Stream, RefusesEveryCallThatCanTellSoWithoutAFile) {
    const auto expectRefusals = [this] {
        EXPECT_EQ(stream_.SeekTo(0), EBADF);
        EXPECT_EQ(stream_.SeekTo(7), EBADF);
        EXPECT_EQ(stream_.Flush(), EBADF);
        EXPECT_EQ(stream_.Sync(), EBADF);
        EXPECT_EQ(stream_.Close(), EBADF);
    };
    expectRefusals();
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    ASSERT_EQ(stream_.SeekTo(7), 0);
    ASSERT_EQ(stream_.Close(), 0);
    expectRefusals();
}

TEST_F(Stream, FlushesNoOtherStreamWhenItHasNone) {
    PositionedStream other;
    ASSERT_EQ(other.Open(path_.c_str(), "wb", 4096), 0);
    ExpectWhole(other.Write("abc", 3), 3);
    EXPECT_EQ(stream_.Flush(), EBADF);
    EXPECT_EQ(support::ReadFile(path_), "");
}

TEST_F(Stream, ReadsAtTheOffsetSoughtBufferedOrNot) {
    support::WriteFile(path_, "0123456789");
    for (const std::size_t bufferSize : {0U, 4U, 4096U}) {
        ASSERT_EQ(stream_.Open(path_.c_str(), "r", bufferSize), 0);
        EXPECT_EQ(Read(3), "012");
        EXPECT_EQ(stream_.SeekTo(7), 0);
        EXPECT_EQ(Read(2), "78");
        EXPECT_EQ(stream_.SeekTo(0), 0);
        EXPECT_EQ(Read(10), "0123456789");
        EXPECT_EQ(stream_.Close(), 0);
    }
}

TEST_F(Stream, DoesNotSeekWhereItStandsAlready) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    EXPECT_EQ(Read(2), "01");
    MoveDescriptor(6);
    EXPECT_EQ(stream_.SeekTo(2), 0);
    EXPECT_EQ(Read(2), "67");
    EXPECT_EQ(stream_.SeekTo(0), 0);
    EXPECT_EQ(Read(2), "01");
}

TEST_F(Stream, SeeksAnewAfterAShortRead) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 4096), 0);
    ASSERT_EQ(stream_.SeekTo(8), 0);
    EXPECT_EQ(Read(5), "89");
    EXPECT_TRUE(read_.ended);
    EXPECT_EQ(read_.error, 0);
    EXPECT_EQ(stream_.SeekTo(8), 0);
    EXPECT_EQ(Read(2), "89");
    ExpectWhole(read_, 2);
}

TEST_F(Stream, SeeksAnewAfterAFailedRead) {
    ASSERT_EQ(stream_.Open(directory_.Path().c_str(), "r", 0), 0);
    EXPECT_EQ(Read(1), "");
    EXPECT_EQ(read_.error, EISDIR);
    EXPECT_FALSE(read_.ended);
    MoveDescriptor(1);
    EXPECT_EQ(stream_.SeekTo(0), 0);
    EXPECT_EQ(lseek(stream_.Descriptor(), 0, SEEK_CUR), 0);
}

TEST_F(Stream, HandsOverTheWholeUnitsThatAreThere) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    ASSERT_EQ(stream_.SeekTo(2), 0);
    char bytes[6] = "";
    EXPECT_EQ(stream_.ReadUnits(bytes, 2).count, 6U);
    EXPECT_EQ(std::string(bytes, 6), "234567");
    EXPECT_EQ(stream_.SeekTo(8), 0);
    const StreamTransfer rest = stream_.ReadUnits(bytes, 4);
    EXPECT_EQ(rest.count, 2U);
    EXPECT_TRUE(rest.ended);
    EXPECT_EQ(std::string(bytes, 2), "89");
}

TEST_F(Stream, WaitsForNoMoreUnitsThanOne) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    const FileDescriptor other(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    ASSERT_EQ(write(other.Get(), "01234567", 8), 8);
    char bytes[100] = "";
    const StreamTransfer read = stream_.ReadUnits(bytes, 4);
    EXPECT_EQ(read.count, 8U);
    EXPECT_EQ(read.error, 0);
    EXPECT_FALSE(read.ended);
}

TEST_F(Stream, HandsOverWhyThereIsNoUnit) {
    ASSERT_EQ(stream_.Open(directory_.Path().c_str(), "r", 0), 0);
    char bytes[8] = "";
    EXPECT_EQ(stream_.ReadUnits(bytes, 4).error, EISDIR);
    MoveDescriptor(1);
    EXPECT_EQ(stream_.SeekTo(0), 0);
    EXPECT_EQ(lseek(stream_.Descriptor(), 0, SEEK_CUR), 0);
}

TEST_F(Stream, ReportsWhyAnOffsetCannotBeSought) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    EXPECT_EQ(stream_.SeekTo(std::uint64_t{1} << 63), EINVAL);
    EXPECT_EQ(stream_.SeekTo(0), 0);
    EXPECT_EQ(Read(1), "0");
}

TEST_F(Stream, TakesNoOffsetForItsPlaceWhenThatIsUnknown) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 0), 0);
    ASSERT_EQ(stream_.SeekTo(8), 0);
    EXPECT_EQ(Read(5), "89");
    EXPECT_EQ(stream_.SeekTo(~std::uint64_t{0}), EINVAL);
    EXPECT_EQ(stream_.SeekTo(~std::uint64_t{0}), EINVAL);
    EXPECT_EQ(stream_.SeekTo(8), 0);
    EXPECT_EQ(Read(2), "89");
}

TEST_F(Stream, WritesUnbufferedAtOnce) {
    ASSERT_EQ(stream_.Open(path_.c_str(), "wb", 0), 0);
    ExpectWritten("abcdef");
    EXPECT_EQ(support::ReadFile(path_), "abcdef");
    EXPECT_EQ(stream_.SeekTo(2), 0);
    ExpectWritten("XY");
    EXPECT_EQ(support::ReadFile(path_), "abXYef");
}

TEST_F(Stream, KeepsWritesInItsBufferUntilFlushed) {
    ASSERT_EQ(stream_.Open(path_.c_str(), "wb", 4096), 0);
    ExpectWritten("abcdef");
    EXPECT_EQ(support::ReadFile(path_), "");
    EXPECT_EQ(stream_.Flush(), 0);
    EXPECT_EQ(support::ReadFile(path_), "abcdef");
    EXPECT_EQ(stream_.Sync(), 0);
}

TEST_F(Stream, TurnsBetweenReadingAndWriting) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r+", 4096), 0);
    EXPECT_EQ(Read(2), "01");
    ExpectWritten("ab");
    EXPECT_EQ(Read(2), "45");
    EXPECT_EQ(stream_.Flush(), 0);
    EXPECT_EQ(support::ReadFile(path_), "01ab456789");
}

TEST_F(Stream, SeeksAnewAfterAFailedWrite) {
    ASSERT_EQ(stream_.Open(path_.c_str(), "wb", 0), 0);
    {
        const support::FileSizeLimit limit(4);
        const StreamTransfer written = stream_.Write("abcdef", 6);
        EXPECT_EQ(written.count, 4U);
        EXPECT_EQ(written.error, EFBIG);
        EXPECT_FALSE(written.ended);
    }
    EXPECT_EQ(stream_.SeekTo(6), 0);
    ExpectWritten("XY");
    EXPECT_EQ(support::ReadFile(path_), std::string("abcd\0\0XY", 8));
}

TEST_F(Stream, TellsTheReasonOfEachCallAlone) {
    ASSERT_EQ(stream_.Open(directory_.Path().c_str(), "r", 0), 0);
    EXPECT_EQ(Read(1), "");
    EXPECT_EQ(read_.error, EISDIR);
    support::WriteFile(path_, "0123456789");
    const FileDescriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(dup2(file.Get(), stream_.Descriptor()), stream_.Descriptor());
    ASSERT_EQ(stream_.SeekTo(8), 0);
    EXPECT_EQ(Read(5), "89");
    EXPECT_TRUE(read_.ended);
    EXPECT_EQ(read_.error, 0);
    errno = ENOSPC;
    ASSERT_EQ(stream_.SeekTo(0), 0);
    EXPECT_EQ(Read(11), "0123456789");
    EXPECT_EQ(read_.error, 0);
}

TEST_F(Stream, ReadsPastItsBufferWhatTheFileHoldsNow) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r", 4096), 0);
    EXPECT_EQ(Read(2), "01");
    support::WriteFile(path_, "abcdefghijkl");
    char bytes[8] = "";
    ExpectWhole(stream_.ReadPastBuffer(1, bytes, 4), 4);
    EXPECT_EQ(std::string_view(bytes, 4), "bcde");
    EXPECT_EQ(Read(2), "23");
    const StreamTransfer tail = stream_.ReadPastBuffer(10, bytes, 4);
    EXPECT_EQ(std::string_view(bytes, tail.count), "kl");
    EXPECT_TRUE(tail.ended);
    EXPECT_EQ(tail.error, 0);
    ASSERT_EQ(stream_.Open(directory_.Path().c_str(), "r", 0), 0);
    EXPECT_EQ(stream_.ReadPastBuffer(0, bytes, 4).error, EISDIR);
}

TEST_F(Stream, ReportsAFlushThatTheSystemRefuses) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    ExpectWritten("abc");
    EXPECT_EQ(stream_.Flush(), ENOSPC);
    EXPECT_EQ(stream_.Sync(), EINVAL);
}

TEST_F(Stream, ReportsACloseThatTheSystemRefusesAndIsGone) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    ExpectWritten("abc");
    EXPECT_EQ(stream_.Close(), ENOSPC);
    EXPECT_FALSE(stream_.IsOpen());
}

TEST_F(Stream, ClosesItsFileWithItsEnd) {
    {
        PositionedStream scoped;
        ASSERT_EQ(scoped.Open(path_.c_str(), "wb", 4096), 0);
        ExpectWhole(scoped.Write("abc", 3), 3);
        EXPECT_EQ(support::DescriptorsOf(path_).size(), 1U);
    }
    EXPECT_EQ(support::DescriptorsOf(path_).size(), 0U);
    EXPECT_EQ(support::ReadFile(path_), "abc");
}

}  // namespace
