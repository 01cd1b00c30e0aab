#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "util/common/scanSetIndex.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The index of files that are given by their blocks.
ScanSetIndex IndexOf(const std::vector<std::vector<std::uint64_t>>& files) {
    ScanSetIndexer indexer(files.size());
    for (std::size_t file = 0; file < files.size(); ++file) {
        for (const std::uint64_t block : files[file]) {
            indexer.Add(file, QuadAndBlock_s{.blockNumber = block, .block = {}});
        }
    }
    return indexer.Finish();
}

/// The files of the candidates.
std::vector<std::uint32_t> FilesFor(const ScanSetIndex& index, std::uint64_t block) {
    std::vector<std::uint32_t> files;
    for (const std::size_t i : index.Candidates(block)) {
        files.push_back(index.Stretches()[i].file);
    }
    return files;
}

TEST(ScanSetIndexTest, NamesTheOneFileOfABlockInASoundSet) {
    const ScanSetIndex index = IndexOf({{1, 2, 5}, {7, 9}, {10, 20}});
    EXPECT_THAT(FilesFor(index, 1), ElementsAre(0));
    EXPECT_THAT(FilesFor(index, 5), ElementsAre(0));
    EXPECT_THAT(FilesFor(index, 8), ElementsAre(1));
    EXPECT_THAT(FilesFor(index, 20), ElementsAre(2));
    EXPECT_EQ(index.Records(), 7U);
}

TEST(ScanSetIndexTest, NamesNoneForABlockBetweenFilesOrOutsideOfAll) {
    const ScanSetIndex index = IndexOf({{1, 2}, {}, {7, 9}});
    EXPECT_THAT(FilesFor(index, 0), IsEmpty());
    EXPECT_THAT(FilesFor(index, 4), IsEmpty());
    EXPECT_THAT(FilesFor(index, 10), IsEmpty());
}

TEST(ScanSetIndexTest, NamesAllThatReachOverABlockTheLastOfTheSetFirst) {
    const ScanSetIndex index = IndexOf({{1, 100}, {90, 5}, {50}, {2, 3}});
    EXPECT_THAT(FilesFor(index, 50), ElementsAre(2, 1, 0));
    EXPECT_THAT(FilesFor(index, 95), ElementsAre(0));
    EXPECT_THAT(FilesFor(index, 2), ElementsAre(3, 0));
}

TEST(ScanSetIndexTest, CutsALongFileIntoStretches) {
    std::vector<std::uint64_t> blocks;
    for (std::uint64_t block = 0; block < 3000; ++block) {
        blocks.push_back(block);
    }
    const ScanSetIndex index = IndexOf({blocks});
    ASSERT_EQ(index.Stretches().size(), 3U);
    EXPECT_EQ(index.Stretches()[0].records, 1280U);
    EXPECT_EQ(index.Stretches()[2].first, 2560U);
    EXPECT_EQ(index.Stretches()[2].records, 440U);
    EXPECT_EQ(index.Stretches()[2].range.lowest, 2560U);
    EXPECT_EQ(index.Stretches()[2].range.highest, 2999U);
    EXPECT_THAT(index.Candidates(1279), ElementsAre(0));
    EXPECT_THAT(index.Candidates(1280), ElementsAre(1));
}

TEST(ScanSetIndexTest, SkipsWhatLiesBelowABlock) {
    const ScanSetIndex index = IndexOf({{1, 2}, {3, 50}, {4, 5}, {60}});
    EXPECT_EQ(index.FirstReaching(0), 0U);
    EXPECT_EQ(index.FirstReaching(3), 1U);
    EXPECT_EQ(index.FirstReaching(50), 1U);
    EXPECT_EQ(index.FirstReaching(51), 3U);
    EXPECT_EQ(index.FirstReaching(61), 4U);
}

TEST(ScanSetIndexTest, OfNothingHasNothing) {
    const ScanSetIndex index = IndexOf({});
    EXPECT_EQ(index.FirstReaching(0), 0U);
    EXPECT_THAT(index.Candidates(0), IsEmpty());
    EXPECT_EQ(index.Records(), 0U);
}

TEST(ScanSetIndexTest, KnowsTheHighestBlockThereCanBe) {
    constexpr std::uint64_t kHighest = ~std::uint64_t{0};
    const ScanSetIndex index = IndexOf({{0}, {kHighest}});
    EXPECT_THAT(FilesFor(index, kHighest), ElementsAre(1));
    EXPECT_EQ(index.FirstReaching(kHighest), 1U);
}

}  // namespace
