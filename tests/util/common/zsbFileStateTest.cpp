#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "tests/support/poolBlocks.h"
#include "tests/support/writingTest.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeBlock;
using support::ScanFileParts;

constexpr int kInvalidState = 20010;
constexpr int kEndOfFile = 20100;

/// A call and what it returned.
struct Answer {
    const char* call;
    int status;
};

unsigned char* Bytes(QuadAndBlock_s& record) {
    return reinterpret_cast<unsigned char*>(&record);
}

std::vector<Answer> WritingCalls(ZSBFile& file) {
    QuadAndBlock_s record{};
    return {{"QuadAndBlockWrite", file.QuadAndBlockWrite(&record)},
            {"ByteStreamWrite", file.ByteStreamWrite(Bytes(record), 8)},
            {"ByteStreamWrite of nothing", file.ByteStreamWrite(nullptr, 0)},
            {"DataWrite", file.DataWrite(Bytes(record), 8)},
            {"DataWrite of nothing", file.DataWrite(nullptr, 0)},
            {"DataWriteFlush", file.DataWriteFlush()},
            {"HeaderWrite", file.HeaderWrite()},
            {"CreateClose", file.CreateClose(true, false, false, false, nullptr)}};
}

std::vector<Answer> CompressingCalls(ZSBFile& file) {
    QuadAndBlock_s record{};
    unsigned char* bytes = Bytes(record);
    return {{"ByteStreamCompressionAndWrite", file.ByteStreamCompressionAndWrite(bytes, 8)},
            {"QuadAndBlockCompressionAndWrite", file.QuadAndBlockCompressionAndWrite(bytes)},
            {"CreateCloseCompression", file.CreateCloseCompression()}};
}

std::vector<Answer> ReadingCalls(ZSBFile& file) {
    QuadAndBlock_s record{};
    unsigned char* bytes = Bytes(record);
    return {{"QuadAndBlockRead", file.QuadAndBlockRead(&record, nullptr)},
            {"QuadAndBlockReadAndInflate", file.QuadAndBlockReadAndInflate(bytes)},
            {"ReadAndValidateHeader", file.ReadAndValidateHeader()},
            {"DataRead", file.DataRead(bytes, 8)},
            {"OpenValidate", file.OpenValidate()},
            {"OpenSearch", file.OpenSearch(&record, 3)},
            {"RandomRead", file.RandomRead(660, &record)},
            {"OpenClose", file.OpenClose()},
            {"OpenNextClose", file.OpenNextClose()},
            {"RandomClose", file.RandomClose()}};
}

class FileState : public support::WritingTest {
  protected:
    static void ExpectRefused(const std::vector<Answer>& answers) {
        for (const Answer& answer : answers) {
            EXPECT_EQ(answer.status, kInvalidState) << answer.call;
        }
    }

    static void ExpectNoReading(ZSBFile& file) {
        ExpectRefused(ReadingCalls(file));
        QuadAndBlock_s record{};
        EXPECT_EQ(file.DataRead2(Bytes(record), 8), 0U);
    }

    static void ExpectNothingOpen(ZSBFile& file) {
        ExpectRefused(WritingCalls(file));
        ExpectRefused(CompressingCalls(file));
        ExpectNoReading(file);
        EXPECT_EQ(file.LastFile(), 0U);
        EXPECT_EQ(file.BlocksInFileGet(), 0U);
    }

    /// Makes the set's next file, of one record.
    void WriteFile(ZSBFile& file) {
        records_.clear();
        ASSERT_EQ(file.CreateNext(true), 0);
        ASSERT_EQ(Append(file, 1, MakeBlock("SPB5")), 0);
        ASSERT_EQ(Close(file), 0);
    }
};

TEST_F(FileState, WithoutAFileEveryCallIsRefusedAndLeavesNoTrace) {
    for (const bool compress : {false, true}) {
        const auto file = Make({.compress = compress});
        ExpectNothingOpen(*file);
        WriteFile(*file);
        ExpectNothingOpen(*file);
        WriteFile(*file);
        const ScanFileParts parts = Parts(compress ? "C0000001.ZSB" : "T0000001.ZSB");
        EXPECT_EQ(compress ? parts.InflatedData() : parts.Data(), records_);
        EXPECT_EQ(parts.Flags(), compress ? 0x241U : 0x200U);
        EXPECT_EQ(parts.Crc(), support::RegisterOver(records_));
    }
}

TEST_F(FileState, BehindACreationThatFailedEveryCallIsRefused) {
    const auto file = Make({.compress = true});
    std::filesystem::create_directory(Path("C0000000.ZSB"));
    ASSERT_NE(file->CreateNext(true), 0);
    ExpectNothingOpen(*file);
}

TEST_F(FileState, ARawFileTakesNothingForTheCompressor) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ExpectRefused(CompressingCalls(*file));
    ASSERT_EQ(Append(*file, 1, MakeBlock("SPB5")), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
}

TEST_F(FileState, AFileOpenForReadingIsNotWritten) {
    for (const bool compress : {false, true}) {
        const auto file = Make({.compress = compress});
        WriteFile(*file);
        ASSERT_EQ(file->OpenNext(ZSBFile::kOpenAnyZSB), 0);
        ExpectRefused(WritingCalls(*file));
        ExpectRefused(CompressingCalls(*file));
        ASSERT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
        EXPECT_EQ(record_.blockNumber, 1U);
        EXPECT_EQ(file->QuadAndBlockRead(&record_, nullptr), kEndOfFile);
        EXPECT_EQ(file->OpenClose(), 0);
        ExpectNothingOpen(*file);
    }
}

TEST_F(FileState, AFileBeingWrittenIsNotRead) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, MakeBlock("SPB5")), 0);
    ExpectNoReading(*file);
    file->DataReadOffsetUpdate(100);
    EXPECT_EQ(file->OpenNext(ZSBFile::kOpenAny), kInvalidState);
    EXPECT_EQ(file->Open(Path("T0000000.ZSB")), kInvalidState);
    ASSERT_EQ(Append(*file, 2, MakeBlock("LEAF")), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
    EXPECT_EQ(Parts("T0000000.ZSB").FileEof(), 660U + 2 * 4104);
}

TEST_F(FileState, ARawFileHasNothingToInflate) {
    const auto file = Make();
    WriteFile(*file);
    ASSERT_EQ(file->OpenNext(ZSBFile::kOpenAnyZSB), 0);
    EXPECT_EQ(file->QuadAndBlockReadAndInflate(Bytes(record_)), kInvalidState);
}

}  // namespace
