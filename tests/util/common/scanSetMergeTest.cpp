#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

#include "tests/support/fileSizeLimit.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetMerge.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using testing::ElementsAre;
using testing::IsEmpty;

class ScanSetMergeTest : public testing::Test {
  protected:
    /// Writes a try of one file.
    void Put(const support::TemporaryDirectory& folder, std::uint64_t first, std::uint64_t count,
             const char* magic = "LEAF") {
        std::vector<TestRecord> records;
        for (std::uint64_t block = first; block < first + count; ++block) {
            records.push_back(MakeTestRecord(block, magic));
        }
        ScanFileImage::Raw(records)
            .SetNumber(12, 4, 1'700'000'000)
            .SetNumber(32, 8, 100'000)
            .Write(folder.File("T0000000.ZSB"));
    }

    /// Merges both tries; the blocks that differ.
    std::vector<std::uint64_t> Merge(unsigned jobs, std::optional<std::size_t> preferred = {}) {
        std::vector<ScanSet> sets;
        sets.emplace_back(first_.Path());
        sets.emplace_back(second_.Path());
        ScanSetMerge merge(sets, {false, preferred});
        merge.Check(jobs, {});
        EXPECT_THAT(merge.Problems(), IsEmpty());
        std::vector<std::uint64_t> differ;
        decided_ = merge.Write(out_.Path(), jobs, {}, [&differ](const ScanSetConflict& conflict) {
            differ.push_back(conflict.block);
        });
        return differ;
    }

    support::TemporaryDirectory first_;
    support::TemporaryDirectory second_;
    support::TemporaryDirectory out_;
    bool decided_ = false;
};

TEST_F(ScanSetMergeTest, WritesTheBlocksOfBothOnSeveralThreads) {
    Put(first_, 0, 6000);
    Put(second_, 5000, 6000);
    EXPECT_THAT(Merge(4), IsEmpty());
    EXPECT_TRUE(decided_);
    const ScanSetReport report = CheckScanSet(ScanSet(out_.Path()), 4);
    EXPECT_TRUE(report.Restorable());
    EXPECT_EQ(report.records, 11'000U);
    EXPECT_EQ(report.files.size(), 5U);
    EXPECT_EQ(report.files.front().records, 2555U);
}

TEST_F(ScanSetMergeTest, TellsOfBlocksThatDifferInTheirOrder) {
    Put(first_, 1, 3000);
    Put(second_, 2999, 5, "BtqZ");
    EXPECT_THAT(Merge(4), ElementsAre(2999, 3000));
    EXPECT_FALSE(decided_);
}

TEST_F(ScanSetMergeTest, TakesThePreferredCopy) {
    Put(first_, 1, 3);
    Put(second_, 3, 2, "BtqZ");
    EXPECT_THAT(Merge(1, 1), ElementsAre(3));
    EXPECT_TRUE(decided_);
    const support::ScanFileParts made(out_.File("T0000000.ZSB"));
    ASSERT_EQ(made.DataBytes(), 660U + 4 * 4104);
    EXPECT_EQ(made.Data().substr(4104 + 8, 4), "LEAF");
    EXPECT_EQ(made.Data().substr(2 * 4104 + 8, 4), "BtqZ");
}

TEST_F(ScanSetMergeTest, EndsOnAllThreadsWhereOneCannotWrite) {
    Put(first_, 0, 9000);
    Put(second_, 0, 1);
    const support::FileSizeLimit limit(1'000'000);
    EXPECT_THROW(Merge(4), std::system_error);
}

TEST_F(ScanSetMergeTest, EndsOnAllThreadsWhereAFileHasChangedMeanwhile) {
    Put(first_, 0, 9000);
    Put(second_, 0, 1);
    std::vector<ScanSet> sets;
    sets.emplace_back(first_.Path());
    sets.emplace_back(second_.Path());
    ScanSetMerge merge(sets, {});
    merge.Check(1, {});
    Put(first_, 0, 8000);
    EXPECT_THROW(merge.Write(out_.Path(), 4, {}, [](const ScanSetConflict&) {}),
                 std::runtime_error);
}

}  // namespace
