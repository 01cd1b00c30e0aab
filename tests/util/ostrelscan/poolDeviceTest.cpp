#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/fileBytes.h"
#include "tests/support/holedMemory.h"
#include "tests/support/loopDevice.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/temporaryDirectory.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/poolDevice.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

using enum BlockTransfer::Outcome;
using support::NoiseBlock;

class Device : public testing::Test {
  protected:
    BlockTransfer Read(std::uint64_t block) {
        buffer_.assign(support::kBlockBytes, '?');
        return device_.Read(buffer_.data(), block);
    }

    void ExpectBlock(std::uint64_t block, const std::string& content) {
        EXPECT_EQ(Read(block).outcome, Done) << block;
        EXPECT_EQ(buffer_, content) << block;
    }

    void ExpectFailure(std::uint64_t block, BlockTransfer::Outcome outcome, int systemError) {
        const BlockTransfer transfer = Read(block);
        EXPECT_EQ(transfer.outcome, outcome) << block;
        EXPECT_EQ(transfer.systemError, systemError) << block;
    }

    support::TemporaryDirectory directory_;
    std::string path_ = directory_.File("device");
    std::string buffer_;
    PoolDevice device_;
};

TEST_F(Device, ReportsWhyItCannotBeOpened) {
    EXPECT_EQ(device_.OpenForReading(path_.c_str()), ENOENT);
}

TEST_F(Device, FindsBlockNAtNTimes4096) {
    support::WriteFile(path_, NoiseBlock(0) + NoiseBlock(1) + NoiseBlock(2));
    ASSERT_EQ(device_.OpenForReading(path_.c_str()), 0);
    ExpectBlock(1, NoiseBlock(1));
    ExpectBlock(2, NoiseBlock(2));
    ExpectBlock(0, NoiseBlock(0));
    EXPECT_EQ(device_.Close(), 0);
}

TEST_F(Device, ReadsOverManyBuffers) {
    constexpr unsigned kBlocks = 200;
    std::string image;
    for (unsigned i = 0; i < kBlocks; ++i) {
        image += NoiseBlock(i);
    }
    support::WriteFile(path_, image);
    ASSERT_EQ(device_.OpenForReading(path_.c_str()), 0);
    for (unsigned i = 0; i < kBlocks; ++i) {
        ExpectBlock(i, NoiseBlock(i));
    }
    ExpectFailure(kBlocks, AtEnd, 0);
}

TEST_F(Device, EndsAtAShortTail) {
    support::WriteFile(path_, NoiseBlock(0) + NoiseBlock(1) + "tail");
    ASSERT_EQ(device_.OpenForReading(path_.c_str()), 0);
    ExpectFailure(2, AtEnd, 0);
    ExpectFailure(1000, AtEnd, 0);
    ExpectBlock(1, NoiseBlock(1));
}

TEST_F(Device, ReportsABlockThatCannotBeSought) {
    support::WriteFile(path_, NoiseBlock(0));
    ASSERT_EQ(device_.OpenForReading(path_.c_str()), 0);
    ExpectFailure(std::uint64_t{1} << 51, SeekFailed, EINVAL);
    ExpectBlock(0, NoiseBlock(0));
}

TEST_F(Device, ReportsTheSystemsErrorOfAFailedRead) {
    ASSERT_EQ(device_.OpenForReading(directory_.Path().c_str()), 0);
    ExpectFailure(0, Failed, EISDIR);
    ExpectFailure(1, Failed, EISDIR);
    ExpectFailure(64, Failed, EISDIR);
}

TEST_F(Device, LosesNothingButTheBadBlocks) {
    constexpr std::size_t kBlocks = 200;
    const std::vector<std::size_t> bad{0, 5, 63, 64, 100, 101, 130};
    support::HoledMemory memory(kBlocks);
    for (std::size_t i = 0; i < kBlocks; ++i) {
        memory.Put(i, NoiseBlock(static_cast<unsigned>(i)));
    }
    for (const std::size_t index : bad) {
        memory.MakeBad(index);
    }
    ASSERT_EQ(device_.OpenForReading(support::HoledMemory::kPath), 0);
    for (std::size_t i = 0; i < kBlocks; ++i) {
        if (std::ranges::find(bad, i) != bad.end()) {
            ExpectFailure(memory.Number(i), Failed, support::HoledMemory::kReadError);
        } else {
            ExpectBlock(memory.Number(i), NoiseBlock(static_cast<unsigned>(i)));
        }
    }
    EXPECT_EQ(device_.Failures().RecoveredCount(), 0U);
}

TEST_F(Device, ReadsABlockBehindABadOneThatWasNotAskedFor) {
    constexpr std::size_t kBlocks = 40;
    support::HoledMemory memory(kBlocks);
    for (std::size_t i = 0; i < kBlocks; ++i) {
        memory.Put(i, NoiseBlock(static_cast<unsigned>(i)));
    }
    memory.MakeBad(20);
    ASSERT_EQ(device_.OpenForReading(support::HoledMemory::kPath), 0);
    for (std::size_t i = kBlocks; i-- > 0;) {
        if (i == 20) {
            ExpectFailure(memory.Number(i), Failed, support::HoledMemory::kReadError);
        } else {
            ExpectBlock(memory.Number(i), NoiseBlock(static_cast<unsigned>(i)));
        }
    }
}

TEST_F(Device, ReadsWhatWasWritten) {
    support::WriteFile(path_, NoiseBlock(0) + NoiseBlock(1));
    ASSERT_EQ(device_.OpenForWriting(path_.c_str()), 0);
    support::WriteFile(path_, NoiseBlock(0) + NoiseBlock(1));
    ExpectBlock(1, NoiseBlock(1));
    EXPECT_EQ(device_.Write(NoiseBlock(5).data(), 1).outcome, Done);
    ExpectBlock(1, NoiseBlock(5));
}

TEST_F(Device, StartsAfreshWhenItIsOpenedAgain) {
    support::HoledMemory memory(2);
    memory.MakeBad(0);
    ASSERT_EQ(device_.OpenForReading(support::HoledMemory::kPath), 0);
    ExpectFailure(memory.Number(0), Failed, support::HoledMemory::kReadError);
    EXPECT_EQ(device_.Close(), 0);
    support::WriteFile(path_, NoiseBlock(7));
    ASSERT_EQ(device_.OpenForReading(path_.c_str()), 0);
    ExpectBlock(0, NoiseBlock(7));
}

TEST_F(Device, FailsEverySeekWhileItIsNotOpen) {
    const auto expectFailures = [this] {
        for (const std::uint64_t block : {0, 1, 64}) {
            ExpectFailure(block, SeekFailed, EBADF);
            const BlockTransfer transfer = device_.Write(NoiseBlock(0).data(), block);
            EXPECT_EQ(transfer.outcome, SeekFailed) << block;
            EXPECT_EQ(transfer.systemError, EBADF) << block;
        }
        EXPECT_EQ(device_.Flush(), EBADF);
        EXPECT_EQ(device_.Sync(), EBADF);
        EXPECT_EQ(device_.Close(), EBADF);
    };
    expectFailures();
    EXPECT_EQ(device_.OpenForReading(path_.c_str()), ENOENT);
    expectFailures();
    // A failed read leaves a stretch that would be read block by block.
    ASSERT_EQ(device_.OpenForReading(directory_.Path().c_str()), 0);
    ExpectFailure(0, Failed, EISDIR);
    EXPECT_EQ(device_.Close(), 0);
    expectFailures();
}

TEST(IdleEngine, FailsEveryBlockAsASeek) {
    constexpr int kNoDevice = 0x22BA5000 + EBADF;
    const support::CapturedLog log;
    ScanEngine engine(true, true);
    BlockSelector selector;
    char block[support::kBlockBytes] = "";
    EXPECT_EQ(engine.ReadPoolBlk(block, 0), kNoDevice);
    EXPECT_EQ(engine.ReadPoolBlk(block, 5), kNoDevice);
    EXPECT_EQ(engine.WritePoolBlk(block, 5), kNoDevice);
    EXPECT_EQ(log.Text(),
              "util/ostrelscan/scanEngine[1438] Seek error on device during restore - 9\n"
              "util/ostrelscan/scanEngine[1439]  Seek was to block - 5\n"
              "TrackWriteErrorStats\n"
              "  Write error recorded from util/ostrelscan/scanEngine[1441]  Block - 5 Status - "
              "22ba5009\n");
    EXPECT_EQ(engine.ValidateSBHSimple(), kNoDevice);
    EXPECT_EQ(engine.ValidateSBHSimple(selector), kNoDevice);
    EXPECT_EQ(selector.IsSelectedBlock("LEAF----"), 1);
    EXPECT_EQ(selector.IsSelectedBlock("BtqZ----"), 1);
}

TEST_F(Device, CountsThreeBlocksWhenItsSizeIsNotToBeHad) {
    support::WriteFile(path_, NoiseBlock(0));
    EXPECT_EQ(PoolDevice::MeasureBlocks(path_.c_str()), 3U);
    EXPECT_EQ(PoolDevice::MeasureBlocks("/dev/null"), 3U);
}

TEST_F(Device, CountsTwoBlocksWhenItCannotBeOpened) {
    EXPECT_EQ(PoolDevice::MeasureBlocks(path_.c_str()), 2U);
}

TEST_F(Device, CountsTheWholeBlocksOfABlockDevice) {
    support::WriteFile(path_, std::string(10 * support::kBlockBytes + 512, 'x'));
    const support::LoopDevice loop(path_);
    if (!loop.Works()) {
        GTEST_SKIP() << "this machine gives no loop device";
    }
    EXPECT_EQ(PoolDevice::MeasureBlocks(loop.Path().c_str()), 10U);
}

TEST_F(Device, CountsOneBlockOfABlockDeviceThatIsSmallerThanOne) {
    support::WriteFile(path_, std::string(512, 'x'));
    const support::LoopDevice loop(path_);
    if (!loop.Works()) {
        GTEST_SKIP() << "this machine gives no loop device";
    }
    EXPECT_EQ(PoolDevice::MeasureBlocks(loop.Path().c_str()), 1U);
}

}  // namespace
