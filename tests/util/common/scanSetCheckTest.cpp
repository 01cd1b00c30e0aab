#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetCheck.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using testing::ElementsAre;
using testing::IsEmpty;

/// A set in a folder, whose files are given by their blocks.
class ScanSetCheckTest : public testing::Test {
  protected:
    void Write(const std::vector<std::vector<std::uint64_t>>& files) {
        for (std::size_t number = 0; number < files.size(); ++number) {
            std::vector<TestRecord> records;
            for (const std::uint64_t block : files[number]) {
                records.push_back(MakeTestRecord(block));
            }
            Put(number, ScanFileImage::Raw(records, number + 1 == files.size() ? 0x002 : 0));
        }
    }

    void Put(std::size_t number, ScanFileImage image) {
        image.SetNumber(12, 4, 1'700'000'000)
            .SetNumber(32, 8, 1000)
            .SetNumber(64, 4, number)
            .Write(directory_.File("T000000" + std::to_string(number) + ".ZSB"));
    }

    ScanSetReport Check(unsigned jobs = 1) {
        return CheckScanSet(ScanSet(directory_.Path()), jobs);
    }

    /// The problems as "file: code".
    std::vector<std::string> Problems(unsigned jobs = 1) {
        std::vector<std::string> found;
        for (const ScanProblem& problem : Check(jobs).problems) {
            found.push_back(problem.file + ": " + problem.code);
        }
        return found;
    }

    support::TemporaryDirectory directory_;
};

TEST_F(ScanSetCheckTest, CountsRecordsAndTypes) {
    Write({{1, 2}, {3}});
    const ScanSetReport report = Check();
    EXPECT_TRUE(report.Restorable());
    EXPECT_EQ(report.records, 3U);
    EXPECT_EQ(report.files[0].records, 2U);
    EXPECT_EQ(report.types[FindFirstWordType(kMagicLeaf32)], 3U);
}

TEST_F(ScanSetCheckTest, FindsABlockTwiceAcrossFilesWhosePlacesMeet) {
    Write({{1, 10}, {5, 20}, {20, 30}, {40}});
    EXPECT_THAT(Problems(), ElementsAre("T0000002.ZSB: block-twice"));
    Write({{1, 2, 9}, {3, 9, 12}, {4, 5, 12}, {40}});
    EXPECT_THAT(Problems(), ElementsAre("T0000001.ZSB: block-twice", "T0000002.ZSB: block-twice"));
}

TEST_F(ScanSetCheckTest, SaysABlockTwiceOnceWhereNumbersAscend) {
    Write({{1, 2, 2, 2, 3}, {4}});
    const ScanSetReport report = Check();
    ASSERT_EQ(report.problems.size(), 1U);
    EXPECT_EQ(report.problems[0].text, "2 blocks that came before");
}

TEST_F(ScanSetCheckTest, IsTheSameForAnyNumberOfJobs) {
    Write({{1, 5, 3}, {3, 7}, {6, 2000}, {8}});
    const std::vector<std::string> alone = Problems(1);
    EXPECT_THAT(alone, ElementsAre("T0000000.ZSB: block-order", "T0000001.ZSB: block-twice",
                                   "T0000002.ZSB: block-range"));
    for (const unsigned jobs : {2U, 5U}) {
        EXPECT_EQ(Problems(jobs), alone);
    }
}

TEST_F(ScanSetCheckTest, TellsOfEveryByteThatIsDone) {
    Write({{1, 2}, {3}, {4, 5}});
    std::atomic<std::uint64_t> done = 0;
    const ScanSet set(directory_.Path());
    CheckScanSet(set, 2, [&done](std::uint64_t bytes) { done += bytes; });
    EXPECT_EQ(done, set.Bytes());
    EXPECT_EQ(set.Bytes(), 3U * 660 + 5U * 4104);
}

TEST_F(ScanSetCheckTest, ShowsTheRecordsOfEveryFileInTheirOrder) {
    Write({{3, 1}, {}, {4, 4}});
    const ScanSet set(directory_.Path());
    std::vector<std::vector<std::uint64_t>> shown(3);
    CheckScanSet(set, 2, {}, [&shown](std::size_t file, const QuadAndBlock_s& record) {
        shown[file].push_back(record.blockNumber);
    });
    EXPECT_THAT(shown, ElementsAre(ElementsAre(3, 1), IsEmpty(), ElementsAre(4, 4)));
}

TEST_F(ScanSetCheckTest, EndsWithWhatItsRecordTakerThrows) {
    Write({{1, 2}, {3}, {4}});
    const auto refuse = [](std::size_t, const QuadAndBlock_s& record) {
        if (record.blockNumber == 3) {
            throw std::runtime_error("no room");
        }
    };
    EXPECT_THROW(CheckScanSet(ScanSet(directory_.Path()), 2, {}, refuse), std::runtime_error);
}

TEST_F(ScanSetCheckTest, KnowsTheOtherFormatByTheSuperblock) {
    Put(0, ScanFileImage::Raw({MakeTestRecord(1, "SB64"), MakeTestRecord(2, "BtqZ")}));
    EXPECT_THAT(Check().warnings, IsEmpty());
    Put(0, ScanFileImage::Raw({MakeTestRecord(1, "SB64"), MakeTestRecord(2, "LEAF")}));
    ASSERT_EQ(Check().warnings.size(), 1U);
    EXPECT_STREQ(Check().warnings[0].code, ScanCode::kOtherFormat);
}

TEST_F(ScanSetCheckTest, KnowsNoOtherFormatWithoutASuperblockUntilBothAreThere) {
    Put(0, ScanFileImage::Raw({MakeTestRecord(2, "LEAF"), MakeTestRecord(3, "LEAF")}));
    EXPECT_THAT(Check().warnings, IsEmpty());
    Put(0, ScanFileImage::Raw({MakeTestRecord(2, "LEAF"), MakeTestRecord(3, "BtqZ")}));
    EXPECT_EQ(Check().warnings.size(), 1U);
}

TEST(FlagWords, AreStable) {
    EXPECT_THAT(FlagWords({.flags = 0, .closeTime = 1}), IsEmpty());
    EXPECT_THAT(FlagWords({.flags = 0x3FF, .closeTime = 0}),
                ElementsAre("compressed", "last", "raw-anyway", "stopped", "state-change", "fourth",
                            "write-error", "no-system-check", "bypassed", "never-closed"));
    EXPECT_THAT(FlagWords({.flags = 0x040, .closeTime = 1}), IsEmpty());
}

}  // namespace
