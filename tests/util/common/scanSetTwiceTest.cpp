#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetTwice.h"

namespace {

using testing::ElementsAre;

class CountTwiceTest : public testing::Test {
  protected:
    /// How often each file repeats blocks, where each is given by its blocks.
    std::vector<std::uint64_t> Counts(const std::vector<std::vector<std::uint64_t>>& files) {
        std::vector<TwiceCandidate> candidates;
        for (const std::vector<std::uint64_t>& blocks : files) {
            std::vector<support::TestRecord> records;
            TwiceCandidate& file = candidates.emplace_back();
            for (const std::uint64_t block : blocks) {
                records.push_back(support::MakeTestRecord(block));
                file.range.Include(block);
            }
            file.path = directory_.File(std::to_string(candidates.size()));
            support::ScanFileImage::Raw(records).SetNumber(12, 4, 1).Write(file.path);
        }
        CountTwice(candidates);
        std::vector<std::uint64_t> counts;
        for (const TwiceCandidate& file : candidates) {
            counts.push_back(file.twice);
        }
        return counts;
    }

    support::TemporaryDirectory directory_;
};

TEST_F(CountTwiceTest, BlamesTheLaterFile) {
    EXPECT_THAT(Counts({{1, 2, 3}, {3, 4}, {2, 4, 5}}), ElementsAre(0, 1, 2));
}

TEST_F(CountTwiceTest, CountsWithinAFileInAnyOrder) {
    EXPECT_THAT(Counts({{5, 1, 5, 1, 5}}), ElementsAre(3));
}

TEST_F(CountTwiceTest, HasNothingToSayOfBlocksAmongEachOther) {
    EXPECT_THAT(Counts({{1, 3, 5}, {2, 4, 6}}), ElementsAre(0, 0));
}

TEST_F(CountTwiceTest, FindsBlocksHoweverFarApart) {
    const std::uint64_t far = std::uint64_t{1} << 40;
    const std::uint64_t end = ~std::uint64_t{0} - 1;
    EXPECT_THAT(Counts({{0, far, end}, {end, far + 1, 0}, {far + 1}}), ElementsAre(0, 2, 1));
}

TEST_F(CountTwiceTest, DoesNothingWithoutFiles) {
    EXPECT_THAT(Counts({}), ElementsAre());
}

}  // namespace
