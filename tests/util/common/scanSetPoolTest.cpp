#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetPool.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kPoolBlocks = 100;

/// A set of raw files in a pool of 100 blocks. A block's image begins with "block" and its number.
class ScanSetPoolTest : public testing::Test {
  protected:
    static ScanFileImage File(const std::vector<std::uint64_t>& blocks, std::uint64_t number,
                              bool last = false) {
        std::vector<TestRecord> records;
        for (const std::uint64_t block : blocks) {
            records.push_back(MakeTestRecord(block, "block" + std::to_string(block) + '\0'));
        }
        ScanFileImage image = ScanFileImage::Raw(records, 0);
        image.SetNumber(12, 4, 1'700'000'000).SetNumber(32, 8, kPoolBlocks);
        image.SetNumber(64, 4, number).SetNumber(60, 4, last ? 0x002 : 0);
        return image;
    }
    std::string PathOf(std::uint64_t number) const {
        return directory_.File("T000000" + std::to_string(number) + ".ZSB");
    }
    void WriteThree() {
        File({10, 12}, 0).Write(PathOf(0));
        File({20, 22}, 1).Write(PathOf(1));
        File({30, 32}, 2, true).Write(PathOf(2));
    }
    ScanSetPool& Open(bool strict = false) {
        return pool_.emplace(ScanSet(directory_.Path()), 2, strict);
    }
    /// What a block begins with, or the error.
    std::string Read(std::uint64_t block) {
        std::array<char, kPoolBlockSize> bytes{};
        bytes.fill('?');
        const int error = pool_->Read(block * kPoolBlockSize, bytes);
        return error == 0 ? std::string(bytes.data()) : "error " + std::to_string(error);
    }

    support::TemporaryDirectory directory_;
    std::optional<ScanSetPool> pool_;
};

TEST_F(ScanSetPoolTest, HasBlocksAndZeros) {
    WriteThree();
    EXPECT_EQ(Open().Bytes(), kPoolBlocks * kPoolBlockSize);
    EXPECT_THAT(pool_->Lost(), IsEmpty());
    EXPECT_EQ(Read(12), "block12");
    EXPECT_EQ(Read(13), "");
    EXPECT_EQ(Read(99), "");
}

TEST_F(ScanSetPoolTest, ReadsAcrossBlocks) {
    WriteThree();
    Open();
    std::array<char, 2 * kPoolBlockSize> bytes{};
    EXPECT_EQ(pool_->Read(11 * kPoolBlockSize + 4'000, bytes), 0);
    EXPECT_STREQ(bytes.data(), "");
    EXPECT_STREQ(bytes.data() + 96, "block12");
    EXPECT_STREQ(bytes.data() + 96 + kPoolBlockSize, "");
}

TEST_F(ScanSetPoolTest, LosesWhatABrokenFileMayHaveHeld) {
    WriteThree();
    std::filesystem::resize_file(PathOf(1), kScanFileHeaderSize + kRecordSize + 1);
    EXPECT_THAT(Open().Lost(), ElementsAre(BlockSpan{21, 30}));
    EXPECT_EQ(Read(20), "block20");
    EXPECT_EQ(Read(21), "error " + std::to_string(EIO));
    EXPECT_EQ(Read(29), "error " + std::to_string(EIO));
    EXPECT_EQ(Read(30), "block30");
    EXPECT_EQ(Read(31), "");
}

TEST_F(ScanSetPoolTest, LosesTheEndWithTheLastFile) {
    WriteThree();
    std::filesystem::remove(PathOf(2));
    EXPECT_THAT(Open().Lost(), ElementsAre(BlockSpan{23, kPoolBlocks}));
}

TEST_F(ScanSetPoolTest, LosesAllBetweenGoodFiles) {
    File({10}, 0).Write(PathOf(0));
    File({20}, 2).SetNumber(56, 4, 1).Write(PathOf(2));  // its CRC is wrong
    File({30}, 3).SetNumber(12, 4, 0).Write(PathOf(3));  // it was never closed
    File({40}, 4, true).Write(PathOf(4));
    EXPECT_THAT(Open().Lost(), ElementsAre(BlockSpan{11, 40}));
    EXPECT_EQ(Read(20), "block20");
    EXPECT_EQ(Read(30), "block30");
    EXPECT_EQ(Read(35), "error " + std::to_string(EIO));
}

TEST_F(ScanSetPoolTest, TrustsAWrongCrcUnlessItIsStrict) {
    WriteThree();
    File({20, 22}, 1).SetNumber(56, 4, 1).Write(PathOf(1));
    EXPECT_THAT(Open().Lost(), IsEmpty());
    EXPECT_EQ(Read(22), "block22");
    EXPECT_THAT(Open(true).Lost(), ElementsAre(BlockSpan{13, 30}));
    EXPECT_EQ(Read(22), "error " + std::to_string(EIO));
}

TEST_F(ScanSetPoolTest, DoesNotGoByBlocksBehindItsEnd) {
    File({10, ~std::uint64_t{0}}, 0).Write(PathOf(0));
    File({20}, 2, true).Write(PathOf(2));
    EXPECT_THAT(Open().Lost(), ElementsAre(BlockSpan{0, 20}));
    EXPECT_EQ(Read(10), "block10");
}

TEST_F(ScanSetPoolTest, TellsLostPartsInOrderWhereBlocksAreNot) {
    File({50}, 0).Write(PathOf(0));
    File({60, 10}, 2).Write(PathOf(2));  // file 1 is missing, and the end
    EXPECT_THAT(Open().Lost(), ElementsAre(BlockSpan{11, kPoolBlocks}));
    EXPECT_EQ(Read(12), "error " + std::to_string(EIO));
    EXPECT_EQ(Read(60), "block60");
}

TEST_F(ScanSetPoolTest, CannotBeWithoutAnyHeader) {
    File({10}, 0).Write(PathOf(0));
    std::filesystem::resize_file(PathOf(0), 100);
    EXPECT_THROW(Open(), std::runtime_error);
}

}  // namespace
