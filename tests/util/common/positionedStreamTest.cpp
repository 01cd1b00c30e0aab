#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/fileBytes.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/openFiles.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/positionedStream.h"

namespace {

class Stream : public testing::Test {
  protected:
    std::string Read(std::size_t size) {
        std::string bytes(size, '?');
        bytes.resize(stream_.Read(bytes.data(), size));
        return bytes;
    }

    /// Moves the descriptor behind the stream's back: only a seek finds the place again.
    void MoveDescriptor(off_t offset) { lseek(stream_.Descriptor(), offset, SEEK_SET); }

    support::TemporaryDirectory directory_;
    std::string path_ = directory_.File("stream");
    PositionedStream stream_;
};

TEST_F(Stream, ReportsWhyAFileCannotBeOpened) {
    EXPECT_EQ(stream_.Open(path_.c_str(), "r", 0), ENOENT);
    EXPECT_FALSE(stream_.IsOpen());
    EXPECT_EQ(stream_.Open(directory_.Path().c_str(), "w", 0), EISDIR);
}

TEST_F(Stream, ReportsWhyAFileCannotBeOpenedAndNotHowTheOldOneCloses) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    EXPECT_TRUE(stream_.Write("abc", 3));
    EXPECT_EQ(stream_.Open(path_.c_str(), "r", 0), ENOENT);
    EXPECT_FALSE(stream_.IsOpen());
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    EXPECT_TRUE(stream_.Write("abc", 3));
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
    EXPECT_TRUE(other.Write("abc", 3));
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
    EXPECT_TRUE(stream_.AtEnd());
    EXPECT_FALSE(stream_.HasError());
    EXPECT_EQ(stream_.SeekTo(8), 0);
    EXPECT_FALSE(stream_.AtEnd());
    EXPECT_EQ(Read(2), "89");
}

TEST_F(Stream, SeeksAnewAfterAFailedRead) {
    ASSERT_EQ(stream_.Open(directory_.Path().c_str(), "r", 0), 0);
    EXPECT_EQ(Read(1), "");
    EXPECT_EQ(errno, EISDIR);
    EXPECT_TRUE(stream_.HasError());
    stream_.ClearIndicators();
    EXPECT_FALSE(stream_.HasError());
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
    EXPECT_TRUE(stream_.Write("abcdef", 6));
    EXPECT_EQ(support::ReadFile(path_), "abcdef");
    EXPECT_EQ(stream_.SeekTo(2), 0);
    EXPECT_TRUE(stream_.Write("XY", 2));
    EXPECT_EQ(support::ReadFile(path_), "abXYef");
}

TEST_F(Stream, KeepsWritesInItsBufferUntilFlushed) {
    ASSERT_EQ(stream_.Open(path_.c_str(), "wb", 4096), 0);
    EXPECT_TRUE(stream_.Write("abcdef", 6));
    EXPECT_EQ(support::ReadFile(path_), "");
    EXPECT_EQ(stream_.Flush(), 0);
    EXPECT_EQ(support::ReadFile(path_), "abcdef");
    EXPECT_EQ(stream_.Sync(), 0);
}

TEST_F(Stream, TurnsBetweenReadingAndWriting) {
    support::WriteFile(path_, "0123456789");
    ASSERT_EQ(stream_.Open(path_.c_str(), "r+", 4096), 0);
    EXPECT_EQ(Read(2), "01");
    EXPECT_TRUE(stream_.Write("ab", 2));
    EXPECT_EQ(Read(2), "45");
    EXPECT_EQ(stream_.Flush(), 0);
    EXPECT_EQ(support::ReadFile(path_), "01ab456789");
}

TEST_F(Stream, SeeksAnewAfterAFailedWrite) {
    ASSERT_EQ(stream_.Open(path_.c_str(), "wb", 0), 0);
    {
        const support::FileSizeLimit limit(4);
        EXPECT_FALSE(stream_.Write("abcdef", 6));
        EXPECT_EQ(errno, EFBIG);
    }
    EXPECT_EQ(stream_.SeekTo(6), 0);
    EXPECT_TRUE(stream_.Write("XY", 2));
    EXPECT_EQ(support::ReadFile(path_), std::string("abcd\0\0XY", 8));
}

TEST_F(Stream, ReportsAFlushThatTheSystemRefuses) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    EXPECT_TRUE(stream_.Write("abc", 3));
    EXPECT_EQ(stream_.Flush(), ENOSPC);
    EXPECT_EQ(stream_.Sync(), EINVAL);
}

TEST_F(Stream, ReportsACloseThatTheSystemRefusesAndIsGone) {
    ASSERT_EQ(stream_.Open("/dev/full", "wb", 4096), 0);
    EXPECT_TRUE(stream_.Write("abc", 3));
    EXPECT_EQ(stream_.Close(), ENOSPC);
    EXPECT_FALSE(stream_.IsOpen());
}

TEST_F(Stream, ClosesItsFileWithItsEnd) {
    {
        PositionedStream scoped;
        ASSERT_EQ(scoped.Open(path_.c_str(), "wb", 4096), 0);
        EXPECT_TRUE(scoped.Write("abc", 3));
        EXPECT_EQ(support::DescriptorsOf(path_).size(), 1U);
    }
    EXPECT_EQ(support::DescriptorsOf(path_).size(), 0U);
    EXPECT_EQ(support::ReadFile(path_), "abc");
}

}  // namespace
