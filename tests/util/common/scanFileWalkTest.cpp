#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanFileWalk.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using testing::ElementsAre;
using testing::IsEmpty;
using End = ScanFileWalk::End;

constexpr std::size_t kCloseTimeAt = 12;

std::vector<TestRecord> ThreeRecords() {
    return {MakeTestRecord(3), MakeTestRecord(7, "BRCH"), MakeTestRecord(9)};
}

ScanFileImage Closed(ScanFileImage image) {
    return image.SetNumber(kCloseTimeAt, 4, 1'700'000'000);
}
ScanFileImage Raw() {
    return Closed(ScanFileImage::Raw(ThreeRecords()));
}
ScanFileImage Packed() {
    return Closed(ScanFileImage::Compressed(ThreeRecords()));
}
/// As the writer left it behind at creation, with what it has written since.
ScanFileImage NeverClosed(ScanFileImage image) {
    return image.SetNumber(kCloseTimeAt, 4, 0).SetFileEof(660).SetDataBytes(660);
}

class ScanFileWalkTest : public testing::Test {
  protected:
    /// The numbers of the blocks that a walk goes through.
    std::vector<std::uint64_t> Blocks(ScanFileWalk& walk) {
        std::vector<std::uint64_t> blocks;
        QuadAndBlock_s record;
        while (walk.Next(&record)) {
            blocks.push_back(record.blockNumber);
            offsets_.push_back(walk.Offset());
            EXPECT_EQ(walk.Count(), blocks.size());
        }
        EXPECT_FALSE(walk.Next(&record));
        return blocks;
    }

    std::vector<std::uint64_t> BlocksOf(const ScanFileImage& image) {
        image.Write(path_);
        ScanFileWalk walk(path_);
        std::vector<std::uint64_t> blocks = Blocks(walk);
        end_ = walk.Ended();
        return blocks;
    }

    support::TemporaryDirectory directory_;
    support::CapturedLog log_;
    const std::string path_ = directory_.File("image");
    std::vector<std::optional<std::uint64_t>> offsets_;
    End end_ = End::kNone;
};

TEST_F(ScanFileWalkTest, GoesThroughARawFile) {
    EXPECT_THAT(BlocksOf(Raw()), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kData);
    EXPECT_THAT(offsets_, ElementsAre(660, 660 + 4104, 660 + 2 * 4104));
}

TEST_F(ScanFileWalkTest, GoesThroughACompressedFile) {
    EXPECT_THAT(BlocksOf(Packed()), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kData);
    EXPECT_THAT(offsets_, ElementsAre(std::nullopt, std::nullopt, std::nullopt));
}

TEST_F(ScanFileWalkTest, KnowsHowFarItHasCome) {
    for (const ScanFileImage& image : {Raw(), Packed()}) {
        image.Write(path_);
        ScanFileWalk walk(path_);
        EXPECT_EQ(walk.TakenUpTo(), 660U);
        Blocks(walk);
        EXPECT_EQ(walk.TakenUpTo(), image.Size());
        EXPECT_EQ(walk.FileBytes(), image.Size());
    }
}

TEST_F(ScanFileWalkTest, CountsWhatItSkips) {
    for (const ScanFileImage& image : {Raw(), Packed()}) {
        image.Write(path_);
        ScanFileWalk walk(path_);
        EXPECT_TRUE(walk.Skip(2));
        EXPECT_EQ(walk.Count(), 2U);
        QuadAndBlock_s record;
        EXPECT_TRUE(walk.Next(&record));
        EXPECT_EQ(walk.Count(), 3U);
    }
}

TEST_F(ScanFileWalkTest, HasTheCrcOfTheRecords) {
    Packed().Write(path_);
    ScanFileWalk walk(path_);
    Blocks(walk);
    EXPECT_EQ(walk.Crc(), walk.Header().crc);
}

TEST_F(ScanFileWalkTest, ReadsAFileWithoutRecords) {
    EXPECT_THAT(BlocksOf(Closed(ScanFileImage::Raw({}))), IsEmpty());
    EXPECT_EQ(end_, End::kData);
    EXPECT_THAT(BlocksOf(Closed(ScanFileImage::Compressed({}))), IsEmpty());
    EXPECT_EQ(end_, End::kData);
}

TEST_F(ScanFileWalkTest, ReadsAFileThatIsCutAsFarAsItGoes) {
    EXPECT_THAT(BlocksOf(Raw().ShrinkSize(660 + 2 * 4104 + 4103)), ElementsAre(3, 7));
    EXPECT_EQ(end_, End::kCut);
    EXPECT_THAT(BlocksOf(Raw().ShrinkSize(660 + 4104)), ElementsAre(3));
    EXPECT_EQ(end_, End::kCut);
    EXPECT_THAT(BlocksOf(Packed().ShrinkSize(Packed().Size() - 1)), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kCut);
}

TEST_F(ScanFileWalkTest, EndsBeforeAPartOfARecord) {
    EXPECT_THAT(BlocksOf(Raw().SetFileEof(660 + 4104 + 100)), ElementsAre(3));
    EXPECT_EQ(end_, End::kPart);
    const std::string payload = Raw().Bytes().substr(660, 4104 + 100);
    EXPECT_THAT(BlocksOf(Closed(ScanFileImage::CompressedBytes(payload))), ElementsAre(3));
    EXPECT_EQ(end_, End::kPart);
}

TEST_F(ScanFileWalkTest, EndsWhereTheStreamIsBroken) {
    EXPECT_THAT(BlocksOf(Packed().FlipByte(662)), IsEmpty());
    EXPECT_EQ(end_, End::kStream);
    // The stream's end comes with its last record, so that one cannot be had without the other.
    EXPECT_THAT(BlocksOf(Packed().FlipByte(Packed().Size() - 1)), ElementsAre(3, 7));
    EXPECT_EQ(end_, End::kStream);
}

TEST_F(ScanFileWalkTest, MissesTheEndOfAStreamThatTheHeaderDoesNotMiss) {
    const std::size_t size = Packed().Size() - 1;
    EXPECT_THAT(BlocksOf(Packed().ShrinkSize(size).SetFileEof(size)), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kStream);
}

TEST_F(ScanFileWalkTest, FindsTheRecordsOfAFileThatWasNeverClosed) {
    EXPECT_THAT(BlocksOf(NeverClosed(Raw()).Append("part")), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kPart);
    const ScanFileImage half = NeverClosed(Packed()).ShrinkSize(Packed().Size() - 4);
    EXPECT_THAT(BlocksOf(half), ElementsAre(3, 7, 9));
    EXPECT_EQ(end_, End::kStream);
    EXPECT_THAT(BlocksOf(NeverClosed(Raw()).ShrinkSize(660)), IsEmpty());
    EXPECT_EQ(end_, End::kData);
}

TEST_F(ScanFileWalkTest, BelievesAHeaderWithOneOfItsSignatures) {
    EXPECT_THAT(BlocksOf(Raw().FlipByte(0)), ElementsAre(3, 7, 9));
    EXPECT_THAT(BlocksOf(Raw().FlipByte(656)), ElementsAre(3, 7, 9));
    EXPECT_THAT(BlocksOf(Raw().FlipByte(0).FlipByte(656)), IsEmpty());
    EXPECT_EQ(end_, End::kHeader);
    EXPECT_THAT(BlocksOf(Raw().ShrinkSize(659)), IsEmpty());
    EXPECT_EQ(end_, End::kHeader);
}

TEST_F(ScanFileWalkTest, TellsWhyAFileCannotBeOpened) {
    const ScanFileWalk missing(directory_.File("missing"));
    EXPECT_EQ(missing.Ended(), End::kUnreadable);
    EXPECT_EQ(missing.SystemError(), ENOENT);
    EXPECT_FALSE(missing.HasHeader());
    const ScanFileWalk folder(directory_.Path());
    EXPECT_EQ(folder.SystemError(), EISDIR);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    const ScanFileWalk pipe(path_);
    EXPECT_EQ(pipe.SystemError(), ESPIPE);
}

TEST_F(ScanFileWalkTest, IsBoundedByTheLogicalLengthOfRawDataInACompressedFile) {
    const ScanFileImage image = Raw().SetFlags(0x005).SetFileEof(0).SetDataBytes(660 + 2 * 4104);
    EXPECT_THAT(BlocksOf(image), ElementsAre(3, 7));
    EXPECT_EQ(end_, End::kData);
}

}  // namespace
