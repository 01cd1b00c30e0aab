#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/writingTest.h"
#include "util/common/zsbFile.h"

namespace {

using support::RegisterOver;
using support::ScanFileParts;

class CompressingWriter : public support::WritingTest {};

TEST_F(CompressingWriter, CompressesTheRecordsOfAFileIntoOneStream) {
    const auto file = Make({.compress = true});
    for (const char* name : {"C0000000.ZSB", "C0000001.ZSB"}) {
        records_.clear();
        ASSERT_EQ(file->CreateNext(true), 0);
        for (unsigned i = 0; i < 20; ++i) {
            ASSERT_EQ(
                Append(*file, i, i % 2 == 0 ? support::NoiseBlock(i) : support::MakeBlock("")), 0);
        }
        ASSERT_EQ(Close(*file), 0);
        const ScanFileParts parts = Parts(name);
        EXPECT_EQ(parts.InflatedData(), records_);
        EXPECT_EQ(parts.FileEof(), parts.Bytes().size());
        EXPECT_EQ(parts.DataBytes(), 660U + 20 * 4104);
        EXPECT_LT(parts.FileEof(), parts.DataBytes());
        EXPECT_EQ(parts.Crc(), RegisterOver(records_));
        EXPECT_EQ(parts.Flags(), 0x241U);
    }
}

TEST_F(CompressingWriter, CompressesAtTheLevelItWasGiven) {
    const struct {
        int level;
        std::uint64_t stored;
        char streamHeader;
    } rows[] = {{-1, 0xFFFFFFFF, '\x9C'}, {0, 0, '\x01'}, {9, 9, '\xDA'}};
    for (const auto& row : rows) {
        const auto file = Make({.compress = true, .level = row.level});
        ASSERT_EQ(file->CreateNext(true), 0);
        ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
        ASSERT_EQ(Close(*file), 0);
        const ScanFileParts parts = Parts("C0000000.ZSB");
        EXPECT_EQ(parts.CompressionLevel(), row.stored);
        EXPECT_EQ(parts.Data()[0], '\x78');
        EXPECT_EQ(parts.Data()[1], row.streamHeader) << row.level;
    }
}

TEST_F(CompressingWriter, HandsCompressedBytesOnInWholeBuffersOfItsOwn) {
    const auto file = Make({.compress = true, .level = 0});
    ASSERT_EQ(file->CreateNext(true), 0);
    for (unsigned i = 0; i < 40; ++i) {
        ASSERT_EQ(Append(*file, i, support::NoiseBlock(i)), 0);
        EXPECT_EQ((Parts("C0000000.ZSB").Bytes().size() - 660) % 16'384, 0U);
    }
    EXPECT_GE(Parts("C0000000.ZSB").Bytes().size(), 660U + 16'384);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").InflatedData(), records_);
}

TEST_F(CompressingWriter, EndsTheStreamOfACompressedFileWithoutRecords) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Close(*file), 0);
    const ScanFileParts parts = Parts("C0000000.ZSB");
    EXPECT_EQ(parts.InflatedData(), "");
    EXPECT_EQ(parts.DataBytes(), 660U);
    EXPECT_EQ(parts.FileEof(), parts.Bytes().size());
    EXPECT_EQ(parts.Crc(), 0xFFFFFFFFU);
}

TEST_F(CompressingWriter, CompressesWithoutCrcAndCountWhenTheCompressorIsFedDirectly) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    const std::string record = support::MakeRecord(7, support::NoiseBlock(7));
    EXPECT_EQ(file->QuadAndBlockCompressionAndWrite(
                  reinterpret_cast<const unsigned char*>(record.data())),
              0);
    ASSERT_EQ(Close(*file), 0);
    const ScanFileParts parts = Parts("C0000000.ZSB");
    EXPECT_EQ(parts.InflatedData(), record);
    EXPECT_EQ(parts.DataBytes(), 660U);
    EXPECT_EQ(parts.Crc(), 0xFFFFFFFFU);
}

TEST_F(CompressingWriter, CountsLogicalBytesTowardsTheLimitWhenCompressing) {
    const auto file = Make({.compress = true, .limit = 660 + 2 * 4104});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(file->QuadAndBlockWrite(&record_), 0);
    EXPECT_FALSE(file->CreateFull());
    ASSERT_EQ(file->QuadAndBlockWrite(&record_), 0);
    EXPECT_TRUE(file->CreateFull());
}

TEST_F(CompressingWriter, CompressesAnyLengthThatItIsGivenAtOnce) {
    constexpr std::size_t kMebibyte = 1'048'576;
    std::string noise;
    for (unsigned seed = 0; noise.size() < 3 * kMebibyte; ++seed) {
        noise += support::NoiseBlock(seed);
    }
    const auto file = Make({.compress = true});
    for (const std::size_t length : {kMebibyte, kMebibyte + 1, 3 * kMebibyte - 1}) {
        const std::string bytes = noise.substr(0, length);
        ASSERT_EQ(file->CreateNext(true), 0);
        std::string name;
        file->CurrentFullName(name);
        EXPECT_EQ(
            file->ByteStreamWrite(reinterpret_cast<const unsigned char*>(bytes.data()), length), 0);
        ASSERT_EQ(Close(*file), 0);
        const ScanFileParts parts(name);
        EXPECT_TRUE(parts.InflatedData() == bytes) << length;
        EXPECT_EQ(parts.DataBytes(), 660U + length);
        EXPECT_EQ(parts.Crc(), RegisterOver(bytes));
    }
}

TEST_F(CompressingWriter, EndsTheStreamOfACompressedFileWhenItIsFlushed) {
    const auto file = Make({.compress = true});
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").Data(), "");
    EXPECT_EQ(file->DataWriteFlush(), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").InflatedData(), records_);
    EXPECT_EQ(file->DataWriteFlush(), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("C0000000.ZSB").InflatedData(), records_);
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x241U);
}

}  // namespace
