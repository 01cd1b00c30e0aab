#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanPieces.h"
#include "util/common/scanSetCheck.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;

constexpr std::uint32_t kStretchRecords = 16;

/// A set of two files, raw or compressed, with 320 blocks each, and its index of small stretches.
class ScanPiecesTest : public testing::TestWithParam<bool> {
  protected:
    ScanPiecesTest() {
        for (std::uint64_t number = 0; number < 2; ++number) {
            std::vector<TestRecord> records;
            for (std::uint64_t block = 0; block < kBlocks; ++block) {
                const std::uint64_t place = number * kBlocks + block;
                records.push_back(MakeTestRecord(place, "block" + std::to_string(place) + '\0'));
            }
            ScanFileImage image = GetParam() ? ScanFileImage::Compressed(records).SetFlags(0x041)
                                             : ScanFileImage::Raw(records, 0);
            image.SetNumber(12, 4, 1'700'000'000).SetNumber(64, 4, number).Write(PathOf(number));
        }
        set_.emplace(directory_.Path());
        ScanSetIndexer indexer(2, kStretchRecords);
        CheckScanSet(*set_, 1, {}, [&indexer](std::size_t file, const QuadAndBlock_s& record) {
            indexer.Add(file, record);
        });
        index_.emplace(indexer.Finish());
    }

    std::string PathOf(std::uint64_t number) const {
        return directory_.File((GetParam() ? "C000000" : "T000000") + std::to_string(number) +
                               ".ZSB");
    }

    /// The mark of a block, found in the only stretch that may hold it.
    std::string MarkOf(ScanPieces& pieces, std::uint64_t block) const {
        const auto content = pieces.Get(index_->Candidates(block).at(0));
        const auto place = content ? content->Find(block) : std::nullopt;
        return place ? std::string(place->record->block) : "none";
    }

    static constexpr std::uint64_t kBlocks = 320;

    support::TemporaryDirectory directory_;
    std::optional<ScanSet> set_;
    std::optional<ScanSetIndex> index_;
};

INSTANTIATE_TEST_SUITE_P(RawAndCompressed, ScanPiecesTest, testing::Bool(),
                         [](const auto& one) { return one.param ? "Compressed" : "Raw"; });

TEST_P(ScanPiecesTest, ReadsAnyStretch) {
    ScanPieces pieces(*set_, *index_);
    for (const std::uint64_t block : {600, 3, 319, 320, 0, 639}) {
        EXPECT_EQ(MarkOf(pieces, block), "block" + std::to_string(block));
    }
}

TEST_P(ScanPiecesTest, KeepsWhatWasUsedLast) {
    ScanPieces pieces(*set_, *index_);
    const std::weak_ptr<const ScanStretchContent> first = pieces.Get(0);
    const std::weak_ptr<const ScanStretchContent> second = pieces.Get(1);
    EXPECT_FALSE(first.expired());
    for (std::size_t i = 2; i < ScanPieces::kMostPieces + 1; ++i) {
        pieces.Get(0);
        pieces.Get(i);
    }
    EXPECT_EQ(pieces.Get(0), first.lock());
    EXPECT_TRUE(second.expired());
}

TEST_P(ScanPiecesTest, HasNothingOfAFileThatIsGoneOrShorter) {
    ScanPieces pieces(*set_, *index_);
    std::filesystem::resize_file(PathOf(0), 700);
    EXPECT_EQ(MarkOf(pieces, 300), "none");
    std::filesystem::remove(PathOf(1));
    EXPECT_EQ(MarkOf(pieces, 400), "none");
}

TEST_P(ScanPiecesTest, HasNothingOfWhatCannotBeRead) {
    ScanPieces pieces(*set_, *index_);
    std::filesystem::remove(PathOf(1));
    std::filesystem::create_directory(PathOf(1));  // opens, and fails every read
    EXPECT_EQ(MarkOf(pieces, 400), "none");
}

TEST_P(ScanPiecesTest, NeedsItsFolder) {
    const std::string folder = directory_.Path().substr(0, directory_.Path().size() - 1);
    std::filesystem::rename(folder, folder + ".aside");
    EXPECT_THROW(ScanPieces(*set_, *index_), std::system_error);
    std::filesystem::rename(folder + ".aside", folder);
}

TEST_P(ScanPiecesTest, FindsAFileAgainThatIsBack) {
    ScanPieces pieces(*set_, *index_);
    std::filesystem::rename(PathOf(1), directory_.File("aside"));
    EXPECT_EQ(MarkOf(pieces, 400), "none");
    std::filesystem::rename(directory_.File("aside"), PathOf(1));
    EXPECT_EQ(MarkOf(pieces, 400), "block400");
}

TEST_P(ScanPiecesTest, ServesManyReadersAtOnce) {
    ScanPieces pieces(*set_, *index_);
    std::vector<std::thread> readers;
    std::vector<int> wrong(4);
    for (std::size_t reader = 0; reader < wrong.size(); ++reader) {
        readers.emplace_back([&, reader] {
            for (std::uint64_t i = 0; i < 200; ++i) {
                const std::uint64_t block = (i * 37 + reader * 3) % (2 * kBlocks);
                wrong[reader] += MarkOf(pieces, block) == "block" + std::to_string(block) ? 0 : 1;
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(4));
}

}  // namespace
