#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/fileDescriptor.h"
#include "util/ostrelscan/deviceCache.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kPiece = 1 << 20;
constexpr std::uint64_t kPieces = 40;
constexpr std::uint64_t kLargeRequest = 1280 << 10;

class Cache : public testing::Test {
  protected:
    void SetUp() override {
        support::WriteFile(path_, std::string(kPieces * kPiece, 'x'));
        file_ = FileDescriptor(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(fsync(file_.Get()), 0);
        posix_fadvise(file_.Get(), 0, 0, POSIX_FADV_DONTNEED);
        if (IsCached(0)) {
            GTEST_SKIP() << "the files of this folder are in memory alone";
        }
        // The kernel's own reading ahead would blur what is looked at.
        posix_fadvise(file_.Get(), 0, 0, POSIX_FADV_RANDOM);
        cache_.Begin(file_.Get(), kLargeRequest);
    }

    void Fetch(std::uint64_t piece) {
        std::string bytes(kPiece, '?');
        ASSERT_EQ(pread(file_.Get(), bytes.data(), kPiece, Offset(piece)),
                  static_cast<ssize_t>(kPiece));
    }

    void Read(std::uint64_t piece, std::chrono::milliseconds time = 0ms) {
        cache_.WillRead(piece * kPiece);
        Fetch(piece);
        cache_.HaveRead(time);
    }

    /// The first three pieces behind a late one are a sample of what comes unasked, the next three
    /// of what is asked for.
    void ReadUntilATrialEnds(std::chrono::milliseconds asked) {
        for (std::uint64_t piece = 0; piece < 4; ++piece) {
            Read(piece, 3ms);
        }
        for (std::uint64_t piece = 4; piece < 7; ++piece) {
            Read(piece, asked);
        }
    }

    bool IsCached(std::uint64_t piece) const {
        void* page = mmap(nullptr, kPiece, PROT_READ, MAP_SHARED, file_.Get(), Offset(piece));
        unsigned char pages[kPiece / 4096] = "";
        mincore(page, kPiece, pages);
        munmap(page, kPiece);
        return (pages[sizeof pages / 2] & 1U) != 0;
    }

    /// What was asked for comes in its own time.
    void AwaitCached(std::uint64_t piece) const {
        while (!IsCached(piece)) {
            std::this_thread::sleep_for(1ms);
        }
    }

    static off_t Offset(std::uint64_t piece) { return static_cast<off_t>(piece * kPiece); }

    support::TemporaryDirectory directory_;
    std::string path_ = directory_.File("device");
    FileDescriptor file_;
    DeviceCache cache_;
};

TEST_F(Cache, IsRidOfWhatAPassHasRead) {
    for (std::uint64_t piece = 0; piece < kPieces; ++piece) {
        Read(piece);
        EXPECT_TRUE(IsCached(piece));
    }
    for (std::uint64_t piece = 0; piece + 1 < kPieces; ++piece) {
        EXPECT_FALSE(IsCached(piece)) << piece;
    }
}

TEST_F(Cache, KeepsWhatWasThereBeforeThePass) {
    Fetch(2);
    Fetch(39);
    for (std::uint64_t piece = 0; piece < kPieces; ++piece) {
        Read(piece);
    }
    EXPECT_TRUE(IsCached(2));
    EXPECT_TRUE(IsCached(39));
    EXPECT_FALSE(IsCached(3));
}

TEST_F(Cache, IsTriedOnceAPassWaits) {
    for (std::uint64_t piece = 0; piece < 4; ++piece) {
        EXPECT_FALSE(IsCached(piece));
        EXPECT_EQ(cache_.MakesWait(), piece > 1) << piece;
        Read(piece, 1ms);
    }
    Read(4);
    AwaitCached(6);
    EXPECT_FALSE(IsCached(7));
}

TEST_F(Cache, IsAskedAheadWhereThatPays) {
    ReadUntilATrialEnds(1ms);
    Read(7);
    AwaitCached(7 + 16);
    EXPECT_FALSE(IsCached(7 + 17));
    Read(8);
    AwaitCached(8 + 16);
    EXPECT_FALSE(IsCached(8 + 17));
}

TEST_F(Cache, IsNotAskedWhereThatDoesNotPay) {
    ReadUntilATrialEnds(3ms);
    for (std::uint64_t piece = 7; piece < kPieces; ++piece) {
        EXPECT_FALSE(IsCached(piece)) << piece;
        Read(piece, 3ms);
        EXPECT_TRUE(cache_.MakesWait());
    }
}

TEST_F(Cache, IsAskedAheadAtOnceWhereRequestsAreSmall) {
    constexpr std::uint64_t unknown = 0;
    for (const std::uint64_t request : {std::uint64_t{128} << 10, unknown}) {
        cache_.Begin(file_.Get(), request);
        posix_fadvise(file_.Get(), 0, 0, POSIX_FADV_DONTNEED);
        Read(0, 1ms);
        Read(1, 1ms);
        EXPECT_FALSE(IsCached(2));
        Read(2, 1ms);
        AwaitCached(2 + 16);
        EXPECT_FALSE(IsCached(2 + 17));
    }
}

TEST_F(Cache, BelongsToADeviceThatIsThere) {
    cache_ = {};
    for (std::uint64_t piece = 0; piece < kPieces; ++piece) {
        Read(piece, 1ms);
        EXPECT_FALSE(cache_.MakesWait());
    }
}

TEST_F(Cache, IsNotAskedWhileTheDeviceKeepsUp) {
    for (std::uint64_t piece = 0; piece < 20; ++piece) {
        EXPECT_FALSE(IsCached(piece));
        // One that is late now and then had to wait for the processor.
        Read(piece, piece % 3 == 0 ? 3ms : 0ms);
    }
}

TEST_F(Cache, IsNotAskedForWhatIsNearAFailure) {
    Read(0, 1ms);
    cache_.HaveFailed();
    for (std::uint64_t piece = 1; piece < kPieces; ++piece) {
        EXPECT_FALSE(IsCached(piece));
        EXPECT_FALSE(cache_.MakesWait());
        Read(piece, 1ms);
    }
}

}  // namespace
