#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/openFiles.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/writingTest.h"
#include "util/common/clock.h"
#include "util/common/zsbFile.h"

namespace {

using support::kScanID;
using support::MakeWriter;
using support::RegisterOver;
using support::ScanFileParts;
using ::testing::HasSubstr;

class Writer : public support::WritingTest {};

std::string ThrownBy(const std::string& path, const std::optional<std::string>& poolName, int level,
                     bool compress) {
    try {
        MakeWriter(path, {.poolName = poolName, .compress = compress, .level = level});
    } catch (const std::invalid_argument& failure) {
        return failure.what();
    }
    return "nothing";
}

TEST_F(Writer, AcceptsAPoolNameOf63CharactersAndRefuses64) {
    const std::string longest(63, 'P');
    const std::string tooLong(64, 'P');
    EXPECT_EQ(ThrownBy("./", longest, -1, false), "nothing");
    EXPECT_EQ(ThrownBy("./", tooLong, -1, false), "Poolname is too long");
}

TEST_F(Writer, AcceptsAPathOf511CharactersAndRefuses512) {
    const std::string longest(511, '/');
    const std::string tooLong(512, '/');
    EXPECT_EQ(ThrownBy(longest, {}, -1, false), "nothing");
    EXPECT_EQ(ThrownBy(tooLong, {}, -1, false), "strlen( zsbFilePath ) >= sizeof( ZF_Path )");
}

TEST_F(Writer, AcceptsLevelsUpTo9AndRefuses10) {
    for (int level = -1; level <= 9; ++level) {
        EXPECT_EQ(ThrownBy("./", {}, level, true), "nothing") << level;
    }
    for (const bool compress : {false, true}) {
        EXPECT_EQ(ThrownBy("./", {}, 10, compress),
                  "(compSpeed > Z_BEST_COMPRESSION) || (compSpeed != Z_DEFAULT_COMPRESSION)");
    }
}

TEST_F(Writer, LeavesLevelsBelowMinus1ToZlib) {
    EXPECT_EQ(ThrownBy("./", {}, -2, false), "nothing");
    EXPECT_EQ(ThrownBy("./", {}, -2, true), "deflateInit is not happy");
    EXPECT_THAT(log_.Text(), HasSubstr("deflateInit error: fffffffe\n"));
}

TEST_F(Writer, ChecksThePoolNameBeforeThePathBeforeTheLevel) {
    const std::string name(64, 'P');
    const std::string path(512, '/');
    EXPECT_EQ(ThrownBy(path, name, 10, false), "Poolname is too long");
    EXPECT_EQ(ThrownBy(path, {}, 10, false), "strlen( zsbFilePath ) >= sizeof( ZF_Path )");
}

TEST_F(Writer, WarnsOfAnyZlibButTheExpectedOne) {
    Make();
    const bool expected = std::string(zlibVersion()) == "1.2.11";
    EXPECT_EQ(log_.Text(), expected ? "" : "warning: different zlib version\n");
}

TEST_F(Writer, NamesTheFileOfASet) {
    const struct {
        const char* name;
        int set;
        bool compress;
        bool zsb;
    } rows[] = {{"T0000000.ZSB", 0, false, true},
                {"T0700000.ZRB", 7, false, false},
                {"C4200000.ZSB", 42, true, true},
                {"C9900000.ZRB", 99, true, false}};
    for (const auto& row : rows) {
        const auto file = Make({.compress = row.compress, .setNumber = row.set});
        ASSERT_EQ(file->CreateNext(row.zsb), 0);
        std::string name;
        file->CurrentFullName(name);
        EXPECT_EQ(name, Path(row.name));
        EXPECT_EQ(file->IsZSB(), row.zsb);
        EXPECT_TRUE(std::filesystem::exists(Path(row.name)));
    }
}

TEST_F(Writer, NamesFile12OfSet3C0300012) {
    const auto file = Make({.compress = true, .setNumber = 3});
    for (int number = 0; number < 12; ++number) {
        ASSERT_EQ(file->CreateNext(true), 0);
        ASSERT_EQ(Close(*file), 0);
    }
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("C0300012.ZSB").FileNumber(), 12U);
    EXPECT_FALSE(std::filesystem::exists(Path("C0300013.ZSB")));
}

TEST_F(Writer, PutsThePrefixBeforeTheNameUntilItIsCleared) {
    const auto file = Make();
    EXPECT_STREQ(file->AppendNameSet("copy-"), "copy-");
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_TRUE(std::filesystem::exists(Path("copy-T0000000.ZSB")));
    file->AppendNameClear();
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_TRUE(std::filesystem::exists(Path("T0000001.ZSB")));
}

TEST_F(Writer, AcceptsAPrefixOf31CharactersAndRefuses32) {
    const auto file = Make();
    const std::string longest(31, 'p');
    EXPECT_EQ(file->AppendNameSet(longest.c_str()), longest);
    try {
        file->AppendNameSet(std::string(32, 'p').c_str());
        ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "Append portion is too long");
    }
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_TRUE(std::filesystem::exists(Path(longest + "T0000000.ZSB")));
}

TEST_F(Writer, UsesThePathAsItStands) {
    const auto file = MakeWriter(Path("set-"));
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_TRUE(std::filesystem::exists(Path("set-T0000000.ZSB")));
}

TEST_F(Writer, RefusesASetNumberThatNoNameHolds) {
    for (const int set : {100, -1}) {
        const auto file = Make({.setNumber = set});
        EXPECT_EQ(file->CreateNext(true), 20008);
        EXPECT_FALSE(file->HasName());
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(Writer, HasNoNameBeforeTheFirstFileAndAfterAClose) {
    const auto file = Make();
    const auto thrown = [](auto&& call) -> std::string {
        try {
            call();
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return "nothing";
    };
    std::string name;
    const auto expectNone = [&] {
        EXPECT_EQ(thrown([&] { file->CurrentFullName(name); }),
                  "No valid ZSB filename available at this time");
        EXPECT_EQ(thrown([&] { file->IsZSB(); }), "No valid filename available at this time");
    };
    expectNone();
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_NO_THROW(file->CurrentFullName(name));
    ASSERT_EQ(Close(*file), 0);
    expectNone();
}

TEST_F(Writer, WritesTheHeaderOfAnEmptyFileAtCreation) {
    const std::int64_t before = Ostrel::GetUTCTime();
    const auto file = Make({.poolBlocks = 0x0102030405060708});
    ASSERT_EQ(file->CreateNext(true), 0);
    const ScanFileParts parts = Parts("T0000000.ZSB");
    ASSERT_EQ(parts.Bytes().size(), 660U);
    EXPECT_EQ(parts.Signature(), "SCAN");
    EXPECT_EQ(parts.Version(), 2U);
    EXPECT_EQ(parts.Revision(), 1U);
    EXPECT_GE(parts.CreateTime(), static_cast<std::uint64_t>(before));
    EXPECT_LE(parts.CreateTime(), static_cast<std::uint64_t>(Ostrel::GetUTCTime()));
    EXPECT_EQ(parts.CloseTime(), 0U);
    EXPECT_EQ(parts.ScanID(), std::string("\x04\x03\x02\x01\x06\x05\x08\x07\x89\x0a"
                                          "\x0b\x0c\x0d\x0e\x0f\x10",
                                          16));
    EXPECT_EQ(parts.PoolBlocks(), 0x0102030405060708U);
    EXPECT_EQ(parts.FileEof(), 660U);
    EXPECT_EQ(parts.DataBytes(), 660U);
    EXPECT_EQ(parts.Crc(), 0xFFFFFFFFU);
    EXPECT_EQ(parts.Flags(), 0x200U);
    EXPECT_EQ(parts.FileNumber(), 0U);
    EXPECT_EQ(parts.CompressionLevel(), 0xFFFFFFFFU);
    EXPECT_EQ(parts.VersionMajor(), 1U);
    EXPECT_EQ(parts.VersionMinor(), 1U);
    EXPECT_EQ(parts.Reserved(), std::string(68, '\0'));
    EXPECT_EQ(parts.PoolName(), std::string("D\0A\0T\0A\0", 8) + std::string(504, '\0'));
    EXPECT_EQ(parts.Trailer(), "SCAN");
}

TEST_F(Writer, FlagsAFileAtCreationByCompressionAndBypassAlone) {
    const struct {
        bool compress;
        bool bypass;
        std::uint64_t flags;
    } rows[] = {{false, false, 0}, {false, true, 0x200}, {true, false, 0x041}, {true, true, 0x241}};
    for (const auto& row : rows) {
        const auto file = Make({.bypass = row.bypass, .compress = row.compress});
        ASSERT_EQ(file->CreateNext(true), 0);
        EXPECT_EQ(Parts(row.compress ? "C0000000.ZSB" : "T0000000.ZSB").Flags(), row.flags);
    }
}

TEST_F(Writer, WidensEachByteOfThePoolName) {
    const auto file = Make({.poolName = std::string(62, 'N') + "\xE9"});
    ASSERT_EQ(file->CreateNext(true), 0);
    std::string expected;
    for (int i = 0; i < 62; ++i) {
        expected += std::string("N\0", 2);
    }
    expected += std::string("\xE9\0", 2) + std::string(512 - 126, '\0');
    EXPECT_EQ(Parts("T0000000.ZSB").PoolName(), expected);
}

TEST_F(Writer, GeneratesAScanIDAndNamesNoPoolWhenItIsOnlyToRead) {
    const auto file = ZSBFile::ForReading(directory_.Path().c_str());
    ASSERT_EQ(file->CreateNext(false), 0);
    GUID_t scanID{};
    file->SFHGet_ScanID(&scanID);
    EXPECT_EQ(Ostrel::LB_GUIDValidate(&scanID), 1);
    const ScanFileParts parts = Parts("T0000000.ZRB");
    std::string name;
    for (const char unit : std::string("TheDefaultPoolNameForRead")) {
        name += std::string{unit, '\0'};
    }
    EXPECT_EQ(parts.PoolName().substr(0, name.size() + 2), name + std::string(2, '\0'));
    EXPECT_EQ(std::memcmp(parts.ScanID().data(), &scanID, 16), 0);
}

TEST_F(Writer, CopiesTheHeaderImage) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ScanFileHeader_s header{};
    EXPECT_EQ(file->CopyZSBHeader(&header), 0);
    EXPECT_EQ(std::memcmp(&header, Parts("T0000000.ZSB").Bytes().data(), 660), 0);
}

TEST_F(Writer, PutsRawRecordsOneBehindTheOther) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    ASSERT_EQ(Append(*file, 0x123456789A, support::NoiseBlock(2)), 0);
    unsigned long crc = 0;
    ASSERT_EQ(file->CreateClose(true, false, false, false, &crc), 0);
    const ScanFileParts parts = Parts("T0000000.ZSB");
    EXPECT_EQ(parts.Data(), records_);
    EXPECT_EQ(parts.FileEof(), 660U + 2 * 4104);
    EXPECT_EQ(parts.DataBytes(), 660U + 2 * 4104);
    EXPECT_EQ(parts.Crc(), RegisterOver(records_));
    EXPECT_EQ(crc, RegisterOver(records_));
    EXPECT_EQ(parts.Flags(), 0x202U);
    EXPECT_GE(parts.CloseTime(), parts.CreateTime());
    EXPECT_EQ(parts.Reserved(), std::string(68, '\0'));
    EXPECT_EQ(parts.Trailer(), "SCAN");
}

TEST_F(Writer, WritesEachRawRecordAtOnce) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
    EXPECT_EQ(Parts("T0000000.ZSB").DataBytes(), 660U);
}

TEST_F(Writer, CountsARawFileWithoutRecordsAsEmpty) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    unsigned long crc = 0;
    ASSERT_EQ(Close(*file, &crc), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Bytes().size(), 660U);
    EXPECT_EQ(Parts("T0000000.ZSB").DataBytes(), 660U);
    EXPECT_EQ(crc, 0xFFFFFFFFU);
}

TEST_F(Writer, FillsInAndWritesTheHeaderWhenItIsAskedTo) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    EXPECT_EQ(file->HeaderFillIn(0x3FF), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Flags(), 0x200U);
    EXPECT_EQ(file->HeaderWrite(), 0);
    const ScanFileParts parts = Parts("T0000000.ZSB");
    EXPECT_EQ(parts.Flags(), 0x3FFU);
    EXPECT_EQ(parts.FileEof(), 660U + 4104);
    EXPECT_EQ(parts.DataBytes(), 660U + 4104);
    EXPECT_EQ(parts.Crc(), RegisterOver(records_));
    EXPECT_EQ(parts.CloseTime(), 0U);
    ASSERT_EQ(Append(*file, 2, support::MakeBlock("LEAF")), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
    EXPECT_EQ(Parts("T0000000.ZSB").Flags(), 0x200U);
}

TEST_F(Writer, FlushesARawFileAndGoesOn) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    EXPECT_EQ(file->DataWriteFlush(), 0);
    ASSERT_EQ(Append(*file, 2, support::MakeBlock("LEAF")), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
}

TEST_F(Writer, SetsAFlagForEachReasonOfTheClose) {
    const auto file = Make();
    const std::uint64_t bits[] = {0x002, 0x008, 0x010, 0x020};
    for (unsigned reasons = 0; reasons < 16; ++reasons) {
        std::uint64_t flags = 0x200;
        for (unsigned bit = 0; bit < 4; ++bit) {
            flags |= (reasons >> bit & 1) != 0 ? bits[bit] : 0;
        }
        ASSERT_EQ(file->CreateNext(true), 0);
        std::string name;
        file->CurrentFullName(name);
        ASSERT_EQ(file->CreateClose((reasons & 1) != 0, (reasons & 2) != 0, (reasons & 4) != 0,
                                    (reasons & 8) != 0, nullptr),
                  0);
        EXPECT_EQ(ScanFileParts(name).Flags(), flags);
    }
}

TEST_F(Writer, IsFullAfter2555RecordsAndNotAfter2554) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    for (unsigned i = 0; i < 2554; ++i) {
        ASSERT_EQ(file->QuadAndBlockWrite(&record_), 0);
    }
    EXPECT_FALSE(file->CreateFull());
    ASSERT_EQ(file->QuadAndBlockWrite(&record_), 0);
    EXPECT_TRUE(file->CreateFull());
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Bytes().size(), 10'486'380U);
}

TEST_F(Writer, EstimatesTheRecordsOfAFileWhileItIsCreated) {
    const struct {
        unsigned long long limit;
        unsigned long long records;
    } rows[] = {{kScanFileSizeLimit, 2555}, {660, 0}, {661, 1}, {660 + 4104, 1}, {661 + 4104, 2}};
    for (const auto& row : rows) {
        const auto file = Make({.limit = row.limit});
        EXPECT_EQ(file->BlocksInFileEstimateGet(), 0U);
        ASSERT_EQ(file->CreateNext(true), 0);
        EXPECT_EQ(file->BlocksInFileEstimateGet(), row.records) << row.limit;
        ASSERT_EQ(Close(*file), 0);
        EXPECT_EQ(file->BlocksInFileEstimateGet(), 0U);
    }
}

TEST_F(Writer, RefusesASecondCreateNextAndChangesNothing) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    EXPECT_EQ(file->CreateNext(false), 20010);
    EXPECT_TRUE(file->IsZSB());
    ASSERT_EQ(Append(*file, 2, support::MakeBlock("LEAF")), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Data(), records_);
    EXPECT_FALSE(std::filesystem::exists(Path("T0000000.ZRB")));
}

TEST_F(Writer, ChangesNothingForNoBytes) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_EQ(file->DataWrite(nullptr, 0), 0);
    EXPECT_EQ(file->ByteStreamWrite(nullptr, 0), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").Bytes().size(), 660U);
    EXPECT_EQ(Parts("T0000000.ZSB").Crc(), 0xFFFFFFFFU);
}

TEST_F(Writer, MovesTheEndWithTheDataOffset) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    file->DataWriteOffsetUpdate(100);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000000.ZSB").FileEof(), 760U);
    ASSERT_EQ(file->CreateNext(true), 0);
    file->DataWriteOffsetUpdate(1UL << 32);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(Parts("T0000001.ZSB").FileEof(), 660U + (1UL << 32));
}

TEST_F(Writer, TellsADataOffsetBeforeTheEnd) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Append(*file, 1, support::MakeBlock("SPB5")), 0);
    ASSERT_EQ(Close(*file), 0);
    // Reading begins at the first record again, and the end of the file written stays.
    ASSERT_EQ(file->Open(Path("T0000000.ZSB")), 0);
    const std::size_t before = log_.Text().size();
    file->DataWriteOffsetUpdate(0);
    file->DataWriteOffsetUpdate(4);
    file->DataWriteOffsetUpdate(4100);
    EXPECT_EQ(log_.Text().substr(before),
              "ZF_DataOffset not > than ZF_CreateEof129c 294\n"
              "ZF_DataOffset not > than ZF_CreateEof129c 298\n");
}

TEST_F(Writer, TracesThePathsThatItCreatesWhenAsked) {
    const auto file = Make();
    ASSERT_EQ(file->CreateNext(true), 0);
    ASSERT_EQ(Close(*file), 0);
    EXPECT_EQ(log_.Text().find("Creating"), std::string::npos);
    file->Trace(true);
    ASSERT_EQ(file->CreateNext(true), 0);
    EXPECT_THAT(log_.Text(), HasSubstr("Creating file called " + Path("T0000001.ZSB") + "\n"));
}

TEST_F(Writer, ClosesAFileLeftOpenAsStopped) {
    Make()->CreateNext(true);
    EXPECT_EQ(Parts("T0000000.ZSB").Flags(), 0x208U);
    {
        const auto file = Make({.compress = true});
        ASSERT_EQ(file->CreateNext(true), 0);
        ASSERT_EQ(Append(*file, 1, support::NoiseBlock(1)), 0);
    }
    EXPECT_EQ(Parts("C0000000.ZSB").Flags(), 0x249U);
    EXPECT_EQ(Parts("C0000000.ZSB").InflatedData(), records_);
    EXPECT_EQ(support::DescriptorsOf(Path("C0000000.ZSB")).size(), 0U);
}

}  // namespace
