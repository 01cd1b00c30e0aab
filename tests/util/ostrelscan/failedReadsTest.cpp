#include <gtest/gtest.h>

#include "util/ostrelscan/failedReads.h"

namespace {

class Failures : public testing::Test {
  protected:
    void ReadAlone(std::uint64_t first, std::uint64_t end) {
        for (std::uint64_t block = first; block < end; ++block) {
            reads_.ReadAlone(block, true);
        }
    }

    FailedReads reads_;
};

TEST_F(Failures, AreNoneAtFirst) {
    reads_.ReadAlone(7, true);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, CountOnceEveryBlockCouldBeReadByItself) {
    reads_.Failed(128, 192);
    ReadAlone(128, 191);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
    reads_.ReadAlone(191, true);
    EXPECT_EQ(reads_.RecoveredCount(), 1U);
    EXPECT_EQ(reads_.FirstRecovered(), 128U);
    ReadAlone(128, 192);
    EXPECT_EQ(reads_.RecoveredCount(), 1U) << "a read is counted once";
}

TEST_F(Failures, CountAReadOfOneBlock) {
    reads_.Failed(1, 2);
    reads_.ReadAlone(1, true);
    EXPECT_EQ(reads_.RecoveredCount(), 1U);
    EXPECT_EQ(reads_.FirstRecovered(), 1U);
}

TEST_F(Failures, DoNotCountWhereABlockStaysUnreadable) {
    for (const std::uint64_t bad : {64U, 100U, 127U}) {
        reads_.Failed(64, 128);
        for (std::uint64_t block = 64; block < 128; ++block) {
            reads_.ReadAlone(block, block != bad);
        }
        EXPECT_EQ(reads_.RecoveredCount(), 0U) << bad;
    }
}

TEST_F(Failures, DoNotCountWhereABlockAnswersOnlyWhenTriedAgain) {
    reads_.Failed(64, 66);
    reads_.ReadAlone(64, false);
    ReadAlone(64, 66);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, DoNotCountWhereTheRunEndsBeforeAllWasTried) {
    reads_.Failed(64, 128);
    ReadAlone(64, 127);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
    reads_.Failed(256, 320);
    ReadAlone(257, 320);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

TEST_F(Failures, RememberWhereTheFirstCountedOneWas) {
    reads_.Failed(0, 64);
    reads_.ReadAlone(0, false);
    reads_.Failed(130, 192);
    ReadAlone(130, 192);
    reads_.Failed(192, 256);
    ReadAlone(192, 256);
    EXPECT_EQ(reads_.RecoveredCount(), 2U);
    EXPECT_EQ(reads_.FirstRecovered(), 130U);
}

TEST_F(Failures, CountEachOfTwoReadsOfTheSameBlocks) {
    reads_.Failed(1, 64);
    reads_.ReadAlone(1, true);
    reads_.Failed(0, 64);
    ReadAlone(0, 64);
    EXPECT_EQ(reads_.RecoveredCount(), 2U);
    EXPECT_EQ(reads_.FirstRecovered(), 1U);
}

TEST_F(Failures, TakeNoNoticeOfABlockThatIsTriedEarlyAndAgain) {
    reads_.Failed(0, 4);
    reads_.ReadAlone(1, true);
    ReadAlone(0, 4);
    EXPECT_EQ(reads_.RecoveredCount(), 1U);
}

TEST_F(Failures, DoNotCountAReadOfNothing) {
    reads_.Failed(10, 10);
    reads_.Failed(10, 3);
    ReadAlone(0, 20);
    EXPECT_EQ(reads_.RecoveredCount(), 0U);
}

}  // namespace
