#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/blockTypes.h"
#include "util/common/scanSetBlocks.h"
#include "util/common/scanSetCheck.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using testing::ElementsAre;

/// A set in a folder, raw or compressed, whose files are given by their blocks. The block of a
/// record begins with the number of its file.
class ScanSetBlocksTest : public testing::TestWithParam<bool> {
  protected:
    void Write(const std::vector<std::vector<std::uint64_t>>& files) {
        for (std::size_t number = 0; number < files.size(); ++number) {
            std::vector<TestRecord> records;
            for (const std::uint64_t block : files[number]) {
                const std::string mark =
                    "file" + std::to_string(number) + "." + std::to_string(records.size());
                records.push_back(MakeTestRecord(block, mark));
            }
            Put(number, GetParam() ? ScanFileImage::Compressed(records).SetFlags(0x041)
                                   : ScanFileImage::Raw(records, 0));
        }
    }

    void Put(std::size_t number, ScanFileImage image) {
        image.SetNumber(12, 4, 1'700'000'000)
            .SetNumber(32, 8, 1000)
            .SetNumber(64, 4, number)
            .Write(directory_.File((GetParam() ? "C000000" : "T000000") + std::to_string(number) +
                                   ".ZSB"));
    }

    /// Makes the set's index while it is checked.
    ScanSetBlocks& Open() {
        set_.emplace(directory_.Path());
        ScanSetIndexer indexer(set_->Files().size());
        CheckScanSet(*set_, 1, {}, [&indexer](std::size_t file, const QuadAndBlock_s& record) {
            indexer.Add(file, record);
        });
        index_.emplace(indexer.Finish());
        blocks_.emplace(*set_, *index_);
        return *blocks_;
    }

    /// Every block with its file and record, as in "3=file0.1", in the order of `Next`.
    std::vector<std::string> Sweep() {
        ScanSetBlocks& blocks = Open();
        std::vector<std::string> found;
        std::uint64_t from = 0;
        while (const auto place = blocks.Next(from)) {
            found.push_back(Told(*place));
            const std::uint64_t block = place->record->blockNumber;
            EXPECT_EQ(Told(*blocks.Find(block)), found.back());
            if (block == ~std::uint64_t{0}) {
                break;
            }
            from = block + 1;
        }
        return found;
    }

    static std::string Told(const ScanPlace& place) {
        const std::string mark(place.record->block, 7);
        EXPECT_EQ(mark, "file" + std::to_string(place.file) + "." + std::to_string(place.index));
        return std::to_string(place.record->blockNumber) + "=" + mark;
    }

    support::TemporaryDirectory directory_;
    std::optional<ScanSet> set_;
    std::optional<ScanSetIndex> index_;
    std::optional<ScanSetBlocks> blocks_;
};

TEST_P(ScanSetBlocksTest, GoesThroughASoundSetInItsOrder) {
    Write({{1, 2}, {5, 9}, {}, {10}});
    EXPECT_THAT(Sweep(),
                ElementsAre("1=file0.0", "2=file0.1", "5=file1.0", "9=file1.1", "10=file3.0"));
}

TEST_P(ScanSetBlocksTest, GoesThroughBlocksInAnyOrderByTheirNumbers) {
    Write({{30, 10}, {20, 5}, {40, 1}});
    EXPECT_THAT(Sweep(), ElementsAre("1=file2.1", "5=file1.1", "10=file0.1", "20=file1.0",
                                     "30=file0.0", "40=file2.0"));
}

TEST_P(ScanSetBlocksTest, TakesTheLastOfBlocksThatAreThereTwice) {
    Write({{1, 7, 1}, {7, 8}, {3, 8, 3}, {1}});
    EXPECT_THAT(Sweep(), ElementsAre("1=file3.0", "3=file2.2", "7=file1.0", "8=file2.1"));
}

TEST_P(ScanSetBlocksTest, EndsAtTheHighestBlockThereCanBe) {
    Write({{1}, {~std::uint64_t{0}}});
    EXPECT_THAT(Sweep(), ElementsAre("1=file0.0", "18446744073709551615=file1.0"));
}

TEST_P(ScanSetBlocksTest, HasNothingForABlockThatTheSetDoesNotHold) {
    Write({{1, 5}, {7, 9}});
    ScanSetBlocks& blocks = Open();
    for (const std::uint64_t block : {0, 3, 6, 8, 10}) {
        EXPECT_FALSE(blocks.Find(block)) << block;
    }
    EXPECT_FALSE(blocks.Next(10));
}

TEST_P(ScanSetBlocksTest, TellsTypeAndOffset) {
    Write({{1}, {2}});
    Put(1, GetParam() ? ScanFileImage::Compressed({MakeTestRecord(4), MakeTestRecord(6, "BRCH")})
                      : ScanFileImage::Raw({MakeTestRecord(4), MakeTestRecord(6, "BRCH")}));
    const auto place = Open().Find(6);
    ASSERT_TRUE(place);
    EXPECT_STREQ(kBlockTypes[place->type].name, "BT branch");
    EXPECT_EQ(place->offset, GetParam() ? std::nullopt : std::optional<std::uint64_t>(660 + 4104));
}

TEST_P(ScanSetBlocksTest, ReachesEveryStretchOfALongFile) {
    std::vector<TestRecord> records;
    for (std::uint64_t block = 0; block < 2600; ++block) {
        records.push_back(MakeTestRecord(block));
    }
    Put(0, GetParam() ? ScanFileImage::Compressed(records) : ScanFileImage::Raw(records));
    ScanSetBlocks& blocks = Open();
    ASSERT_EQ(index_->Stretches().size(), 3U);
    for (const std::uint64_t block : {2599, 0, 1280, 1279, 2560, 2559}) {
        const auto place = blocks.Find(block);
        ASSERT_TRUE(place) << block;
        EXPECT_EQ(place->index, block);
        EXPECT_EQ(std::string(place->record->block, 4096), records[block].block);
    }
}

TEST_P(ScanSetBlocksTest, RefusesASetThatHasLostRecordsSince) {
    Write({{1, 2}, {5, 9}});
    ScanSetBlocks& blocks = Open();
    const std::string path = set_->PathOf(set_->Files()[1]);
    std::filesystem::resize_file(path, 700);
    EXPECT_TRUE(blocks.Find(2));
    EXPECT_THROW(blocks.Find(9), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(RawAndCompressed, ScanSetBlocksTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& kind) {
                             return kind.param ? "Compressed" : "Raw";
                         });

}  // namespace
