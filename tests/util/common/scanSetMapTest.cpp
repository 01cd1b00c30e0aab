#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "util/common/scanSetMap.h"

namespace {

const unsigned kLeaf = FindFirstWordType(kMagicLeaf32);
const unsigned kMsap = FindFirstWordType(kMagicMSAP);

QuadAndBlock_s RecordOf(std::uint64_t block, std::uint32_t magic) {
    QuadAndBlock_s record{.blockNumber = block, .block = {}};
    std::memcpy(record.block, &magic, sizeof magic);
    return record;
}

TEST(ScanSetMapTest, HasACellForEachBlockOfASmallPool) {
    ScanSetMap map(3, 100);
    map.Add(RecordOf(1, kMagicLeaf32));
    EXPECT_EQ(map.Cells(), 3U);
    EXPECT_EQ(map.BlocksPerCell(), 1U);
    EXPECT_EQ(map.TypeOf(0), std::nullopt);
    EXPECT_EQ(map.TypeOf(1), kLeaf);
    EXPECT_EQ(map.Count(kLeaf), 1U);
}

TEST(ScanSetMapTest, PartsALargePoolIntoCellsOfOneSize) {
    const ScanSetMap map(1001, 100);
    EXPECT_EQ(map.BlocksPerCell(), 11U);
    EXPECT_EQ(map.Cells(), 91U);
}

TEST(ScanSetMapTest, ShowsTheMostFrequentTypeOfACell) {
    ScanSetMap map(100, 10);
    map.Add(RecordOf(10, kMagicLeaf32));
    map.Add(RecordOf(11, kMagicMSAP));
    map.Add(RecordOf(19, kMagicMSAP));
    map.Add(RecordOf(20, kMagicLeaf32));
    EXPECT_EQ(map.TypeOf(1), kMsap);
    EXPECT_EQ(map.TypeOf(2), kLeaf);
    EXPECT_EQ(map.Count(kLeaf), 2U);
    EXPECT_EQ(map.Count(kMsap), 2U);
}

TEST(ScanSetMapTest, LeavesOutWhatLiesBehindThePool) {
    ScanSetMap map(10, 10);
    map.Add(RecordOf(10, kMagicLeaf32));
    map.Add(RecordOf(~std::uint64_t{0}, kMagicLeaf32));
    EXPECT_EQ(map.Count(kLeaf), 0U);
}

TEST(ScanSetMapTest, OfTheLargestPoolAndOfNoneHasItsCells) {
    ScanSetMap largest(~std::uint64_t{0}, 1024);
    largest.Add(RecordOf(~std::uint64_t{0} - 1, kMagicLeaf32));
    EXPECT_EQ(largest.Cells(), 1024U);
    EXPECT_EQ(largest.TypeOf(1023), kLeaf);
    ScanSetMap none(0, 1024);
    none.Add(RecordOf(0, kMagicLeaf32));
    EXPECT_EQ(none.Cells(), 0U);
}

}  // namespace
