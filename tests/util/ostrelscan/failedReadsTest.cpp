#include <gtest/gtest.h>

#include "util/ostrelscan/failedReads.h"

namespace {

constexpr std::uint64_t kDeviceEnd = 10'000;

class Failures : public testing::Test {
  protected:
    void Failed(std::uint64_t first, std::uint64_t end) { reads_.Failed(first, end, kDeviceEnd); }

    void Try(std::uint64_t first, std::uint64_t end) {
        for (std::uint64_t block = first; block < end; ++block) {
            reads_.Tried(block, true);
        }
    }

    void ExpectRecovered(std::uint64_t count, std::uint64_t first) {
        EXPECT_EQ(reads_.RecoveredCount(), count);
        EXPECT_EQ(reads_.FirstRecovered(), first);
    }

    FailedReads reads_;
};

TEST_F(Failures, AreNoneAtFirst) {
    Try(0, 100);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, CountOnceEveryBlockCouldBeRead) {
    Failed(64, 128);
    Try(64, 127);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
    reads_.Tried(127, true);
    ExpectRecovered(1, 64);
    Try(64, 200);
    ExpectRecovered(1, 64);
}

TEST_F(Failures, CountAReadOfOneBlock) {
    Failed(1, 2);
    reads_.Tried(1, true);
    ExpectRecovered(1, 1);
}

TEST_F(Failures, CountAReadThatFailedInItsMiddle) {
    Failed(87, 128);
    Try(87, 128);
    ExpectRecovered(1, 87);
}

TEST_F(Failures, DoNotCountWhereABlockStaysUnreadable) {
    for (const std::uint64_t bad : {64U, 100U, 127U}) {
        Failed(64, 128);
        for (std::uint64_t block = 64; block < 128; ++block) {
            reads_.Tried(block, block != bad);
        }
        EXPECT_EQ(reads_.RecoveredCount(), 0U) << bad;
    }
}

TEST_F(Failures, DoNotCountWhereABlockAnswersOnlyWhenTriedAgain) {
    Failed(64, 128);
    reads_.Tried(64, false);
    Try(64, 128);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, DoNotCountWhereTheRunEndsBeforeAllWasTried) {
    Failed(64, 128);
    Try(64, 127);
    Failed(192, 256);
    Try(193, 256);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, EndWithTheDevice) {
    reads_.Failed(64, 128, 100);
    Try(64, 100);
    ExpectRecovered(1, 64);
}

TEST_F(Failures, RememberWhereTheFirstCountedOneWas) {
    Failed(64, 128);
    reads_.Tried(64, false);
    Try(65, 128);
    Failed(192, 256);
    Try(192, 256);
    Failed(320, 384);
    Try(320, 384);
    ExpectRecovered(2, 192);
}

TEST_F(Failures, CountEachOfTwoReadsOfTheSameBlocks) {
    Failed(1, 64);
    reads_.Tried(1, true);
    Failed(0, 64);
    Try(0, 512);
    ExpectRecovered(2, 1);
}

TEST_F(Failures, TakeNoNoticeOfABlockThatIsTriedEarlyAndAgain) {
    Failed(64, 128);
    reads_.Tried(65, true);
    Try(64, 128);
    ExpectRecovered(1, 64);
}

// A page of 128 blocks begins at 896, one of 512 at 1024.

TEST_F(Failures, AreExplainedByABadBlockThatIsReadWithThem) {
    Failed(896, 960);
    Try(896, 960);
    Failed(960, 1024);
    for (std::uint64_t block = 960; block < 1024; ++block) {
        reads_.Tried(block, block != 1000);
    }
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, AreExplainedByABadBlockBeforeThem) {
    Failed(1024, 1088);
    reads_.Tried(1024, false);
    Try(1025, 1088);
    for (std::uint64_t first = 1088; first < 1536; first += 64) {
        Failed(first, first + 64);
        Try(first, first + 64);
    }
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, WaitForTheEndOfWhatMayHaveBeenReadWithThem) {
    Failed(896, 960);
    Try(896, 1023);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
    reads_.Tried(1023, true);
    ExpectRecovered(1, 896);
}

TEST_F(Failures, CountEachReadOfWhatMayBeOnePage) {
    for (std::uint64_t first = 1024; first < 1536; first += 64) {
        Failed(first, first + 64);
        Try(first, first + 64);
    }
    ExpectRecovered(8, 1024);
}

TEST_F(Failures, HaveNothingToDoWithABadBlockBehindTheLargestPage) {
    Failed(1024, 1088);
    Try(1024, 1536);
    Failed(1536, 1600);
    reads_.Tried(1536, false);
    ExpectRecovered(1, 1024);
    Failed(0, 64);
    Try(0, 512);
    ExpectRecovered(2, 1024);
}

TEST_F(Failures, DoNotCountAReadBehindTheDevicesEnd) {
    reads_.Failed(100, 128, 100);
    Try(100, 200);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

}  // namespace
