#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/writingTest.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeBlock;
using support::ScanFileImage;
using support::ScanFileParts;
using support::U32At;
using support::U64At;

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

    /// A file of two records of another set, which differs from this one's in every field it can.
    std::string WriteForeignFile() {
        ScanFileImage image = ScanFileImage::Raw(foreign_, 0x302);
        const std::string path = Path("foreign.ZRB");
        image.SetNumber(16, 8, 0x0123456789ABCDEF).SetNumber(64, 4, 77).Write(path);
        return path;
    }

    static std::string Image(const ZSBFile& file) {
        ScanFileHeader_s header{};
        EXPECT_EQ(file.CopyZSBHeader(&header), 0);
        return {reinterpret_cast<const char*>(&header), sizeof header};
    }

    std::string HeaderOf(const std::string& path) const {
        return support::ReadFile(path).substr(0, 660);
    }

    static std::string FilledIn(ZSBFile& file, unsigned long flags) {
        EXPECT_EQ(file.HeaderFillIn(flags), 0);
        return Image(file);
    }

    static std::string PoolNameOf(const ZSBFile& file) {
        char name[64] = "";
        file.SFHGet_PoolName(name, sizeof name);
        return name;
    }

    const std::vector<support::TestRecord> foreign_{support::MakeTestRecord(3),
                                                    support::MakeTestRecord(7)};
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

TEST_F(FileState, TheHeaderImageIsEmptyBeforeTheFirstFile) {
    const auto file = Make();
    EXPECT_EQ(Image(*file), std::string(660, '\0'));
    EXPECT_EQ(PoolNameOf(*file), "");
}

TEST_F(FileState, TheHeaderImageIsThatOfTheFileLastReadAndStaysAfterItsClose) {
    const auto file = Make();
    WriteFile(*file);
    const std::string path = WriteForeignFile();
    EXPECT_EQ(Image(*file), HeaderOf(Path("T0000000.ZSB")));
    ASSERT_EQ(file->Open(path), 0);
    const auto expectForeign = [&] {
        EXPECT_EQ(Image(*file), HeaderOf(path));
        EXPECT_EQ(PoolNameOf(*file), "POOL");
        GUID_t scanID{};
        file->SFHGet_ScanID(&scanID);
        EXPECT_EQ(std::memcmp(&scanID, Image(*file).data() + 16, sizeof scanID), 0);
    };
    expectForeign();
    EXPECT_EQ(file->LastFile(), 0x002U);
    EXPECT_EQ(file->BlocksInFileGet(), 2U);
    ASSERT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
    expectForeign();
    ASSERT_EQ(file->OpenClose(), 0);
    expectForeign();
    EXPECT_EQ(file->LastFile(), 0U);
    EXPECT_EQ(file->BlocksInFileGet(), 0U);
    EXPECT_NE(file->Open(Path("missing.ZRB")), 0);
    expectForeign();
}

TEST_F(FileState, TheHeaderImageOfAFileTooShortIsEmpty) {
    const auto file = Make();
    WriteFile(*file);
    support::WriteFile(Path("short.ZRB"), HeaderOf(Path("T0000000.ZSB")).substr(0, 659));
    ASSERT_EQ(file->Open(Path("short.ZRB")), 0);
    EXPECT_EQ(Image(*file), std::string(660, '\0'));
    ASSERT_EQ(file->OpenClose(), 0);
    EXPECT_EQ(Image(*file), std::string(660, '\0'));
}

TEST_F(FileState, TheHeaderImageOfAFileWrittenStaysAfterItsClose) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    const std::string created = HeaderOf(Path("T0000000.ZSB"));
    EXPECT_EQ(Image(*file), created);
    ASSERT_EQ(Append(*file, 1, MakeBlock("SPB5")), 0);
    EXPECT_EQ(Image(*file), created);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Image(*file), HeaderOf(Path("T0000000.ZSB")));
    EXPECT_NE(Image(*file), created);
    EXPECT_EQ(PoolNameOf(*file), "DATA");
}

TEST_F(FileState, HeaderFillInAfterAReadTakesTheSetsFieldsAndTheReadsCrc) {
    const auto file = Make({.poolBlocks = 99});
    WriteFile(*file);
    ASSERT_EQ(file->Open(WriteForeignFile()), 0);
    ASSERT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
    const std::uint32_t readCrc =
        support::RegisterOver(support::MakeRecord(foreign_[0].number, foreign_[0].block));
    for (const bool closed : {false, true}) {
        if (closed) {
            ASSERT_EQ(file->OpenClose(), 0);
        }
        const std::string header = FilledIn(*file, 0x003);
        EXPECT_EQ(U32At(header, ScanFileImage::kCrcAt), readCrc);
        EXPECT_EQ(U32At(header, ScanFileImage::kFlagsAt), 0x003U);
        EXPECT_EQ(U64At(header, ScanFileImage::kFileEofAt), 660U + 4104);
        EXPECT_EQ(U64At(header, ScanFileImage::kDataBytesAt), 660U + 4104);
        EXPECT_EQ(U32At(header, 64), 1U);  // the number of the file to come
        // The times, the scan ID and the pool's size are those of the file written before.
        EXPECT_EQ(header.substr(8, 32), HeaderOf(Path("T0000000.ZSB")).substr(8, 32));
        EXPECT_EQ(PoolNameOf(*file), "DATA");
        EXPECT_EQ(file->LastFile(), closed ? 0U : 0x002U);
        EXPECT_EQ(file->BlocksInFileGet(), closed ? 0U : 1U);
    }
}

TEST_F(FileState, TheHeaderFilledInWhileAFileIsReadBoundsIt) {
    const auto file = Make();
    WriteFile(*file);
    ASSERT_EQ(file->Open(WriteForeignFile()), 0);
    ASSERT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
    FilledIn(*file, 0);
    EXPECT_EQ(file->QuadAndBlockRead(&record_, nullptr), kEndOfFile);
    EXPECT_EQ(file->ReadAndValidateHeader(), 0);
    EXPECT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
    EXPECT_EQ(record_.blockNumber, foreign_[1].number);
}

TEST_F(FileState, TheOffsetIsThatOfTheFileLastOpened) {
    const auto file = Make();
    WriteFile(*file);
    ASSERT_EQ(file->Open(WriteForeignFile()), 0);
    file->DataWriteOffsetUpdate(4104);
    unsigned long long offset = 0;
    ASSERT_EQ(file->QuadAndBlockRead(&record_, &offset), 0);
    EXPECT_EQ(offset, 660U + 4104);
    EXPECT_EQ(record_.blockNumber, foreign_[1].number);
    ASSERT_EQ(file->OpenClose(), 0);
    file->DataWriteOffsetUpdate(4);
    EXPECT_EQ(U64At(FilledIn(*file, 0), ScanFileImage::kFileEofAt), 660U + 2 * 4104 + 4);
}

TEST_F(FileState, OneObjectCreatesReadsAndCreatesAgain) {
    for (const bool compress : {false, true}) {
        const auto file = Make({.compress = compress});
        const std::string letter = compress ? "C" : "T";
        for (const std::string& name : {letter + "0000000.ZSB", letter + "0000001.ZSB"}) {
            WriteFile(*file);
            EXPECT_FALSE(file->HasName());
            const ScanFileParts parts = Parts(name);
            EXPECT_EQ(compress ? parts.InflatedData() : parts.Data(), records_);
            EXPECT_EQ(parts.Flags(), compress ? 0x241U : 0x200U);
            EXPECT_EQ(parts.Crc(), support::RegisterOver(records_));
            EXPECT_EQ(parts.DataBytes(), 660U + 4104);
            EXPECT_EQ(parts.FileEof(), parts.Bytes().size());

            ASSERT_EQ(file->OpenNext(compress ? ZSBFile::kOpenCompressedZSB : ZSBFile::kOpenRawZSB),
                      0);
            std::string current;
            file->CurrentFullName(current);
            EXPECT_EQ(current, Path(name));
            EXPECT_EQ(file->OpenValidate(), 0);
            ASSERT_EQ(file->OpenNextClose(), 0);
            EXPECT_TRUE(file->HasName());
        }
    }
}

TEST_F(FileState, ACreationThatFailsKeepsTheHeaderReadAndBeginsTheCrcAnew) {
    const auto file = Make();
    const std::string path = WriteForeignFile();
    ASSERT_EQ(file->Open(path), 0);
    ASSERT_EQ(file->QuadAndBlockRead(&record_, nullptr), 0);
    ASSERT_EQ(file->OpenClose(), 0);
    std::filesystem::create_directory(Path("T0000000.ZSB"));
    ASSERT_NE(file->CreateNext(true), 0);
    EXPECT_EQ(Image(*file), HeaderOf(path));
    EXPECT_TRUE(file->IsZSB());
    const std::string header = FilledIn(*file, 0);
    EXPECT_EQ(U32At(header, ScanFileImage::kCrcAt), 0xFFFFFFFFU);
    EXPECT_EQ(U64At(header, ScanFileImage::kFileEofAt), 660U);
}

TEST_F(FileState, WhatAReadRecordedMarksNoFileCreatedBehindIt) {
    const auto file = Make();
    ASSERT_EQ(file->Open(WriteForeignFile()), 0);
    file->HeaderFillIn(0);
    EXPECT_NE(file->OpenValidate(), 0);
    file->QuadAndBlockErrorSet(20100);
    ASSERT_EQ(file->OpenClose(), 0);
    WriteFile(*file);
    EXPECT_EQ(Parts("T0000000.ZSB").Flags(), 0x200U);
}

}  // namespace
