#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/stride.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/fileDescriptor.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;

constexpr int kMediaCorrupted = 20012;
constexpr int kBufferTooSmall = 20004;
constexpr int kEndOfFile = 20100;
constexpr int kInvalid = 0x22DA5E25;
/// A read that came to the file's end, which sets no system error.
constexpr int kShortRead = 0x22BA5000;
constexpr int kDataError = 0x22115000 - 3;
constexpr int kNoMoreInput = 0x22115000 - 5;

constexpr std::size_t kRecordBytes = 4104;

constexpr std::uint64_t kHuge = ~std::uint64_t{0};

std::vector<TestRecord> TwoRecords() {
    return {MakeTestRecord(3), MakeTestRecord(7, "BRCH")};
}

/// What reading a file to its end gave.
struct Outcome {
    std::vector<TestRecord> records;
    int status = 0;
};

/// Reads and checks a file the way its users do. No file of two records has more to give.
class DamagedFile : public testing::Test {
  protected:
    static constexpr std::size_t kTooMany = 4;

    Outcome ReadToTheEnd() {
        const auto file = Reader();
        Outcome outcome;
        EXPECT_EQ(file->Open(path_), 0);
        QuadAndBlock_s record{};
        while ((outcome.status = file->QuadAndBlockRead(&record, nullptr)) == 0 &&
               outcome.records.size() < kTooMany) {
            outcome.records.push_back({record.blockNumber, {record.block, sizeof record.block}});
        }
        // The end is final, whatever it was.
        EXPECT_NE(file->QuadAndBlockRead(&record, nullptr), 0);
        char name[128];
        file->SFHGet_PoolName(name, sizeof name);
        EXPECT_EQ(file->OpenClose(), 0);
        return outcome;
    }

    int Validate() {
        const auto file = Reader();
        EXPECT_EQ(file->Open(path_), 0);
        const int status = file->OpenValidate();
        EXPECT_EQ(file->OpenClose(), 0);
        return status;
    }

    std::unique_ptr<ZSBFile> Reader() const {
        return ZSBFile::ForReading(directory_.Path().c_str());
    }

    static bool IsFrontOf(const std::vector<TestRecord>& part,
                          const std::vector<TestRecord>& whole) {
        return part.size() <= whole.size() &&
               std::equal(part.begin(), part.end(), whole.begin(),
                          [](const TestRecord& a, const TestRecord& b) {
                              return a.number == b.number && a.block == b.block;
                          });
    }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("image.ZRB");
    support::CapturedLog log_;
    const std::vector<TestRecord> records_ = TwoRecords();
};

struct DamageCase {
    const char* name;
    ScanFileImage image;
    std::size_t recordsRead;
    int readStatus;
    int checkStatus;
    std::string lastLines;  // of the log after reading; empty where nothing is told
};

void PrintTo(const DamageCase& row, std::ostream* stream) {
    *stream << row.name;
}

class DamagedFileKind : public DamagedFile, public testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedFileKind, EndsWithItsStatusAndText) {
    GetParam().image.Write(path_);
    const auto file = Reader();
    ASSERT_EQ(file->Open(path_), 0);
    QuadAndBlock_s record{};
    const std::size_t before = log_.Text().size();
    std::size_t count = 0;
    int status = 0;
    while ((status = file->QuadAndBlockRead(&record, nullptr)) == 0 && count < kTooMany) {
        ++count;
    }
    EXPECT_EQ(count, GetParam().recordsRead);
    EXPECT_EQ(status, GetParam().readStatus);
    const std::string told = log_.Text().substr(before);
    EXPECT_THAT(told, testing::EndsWith(GetParam().lastLines));
    EXPECT_EQ(told.empty(), GetParam().lastLines.empty());
    EXPECT_EQ(Validate(), GetParam().checkStatus);
}

ScanFileImage Raw() {
    return ScanFileImage::Raw(TwoRecords());
}
ScanFileImage Packed() {
    return ScanFileImage::Compressed(TwoRecords());
}
std::string PackedPayload(std::size_t size) {
    std::string payload = Raw().Bytes().substr(660);
    payload.resize(size, 'x');
    return payload;
}

const std::string kShortReadText =
    "ZSBFile::DataRead:: Success\n"
    "util/common/zsbFile[1837] Error reading destination file 1008\n";
const std::string kNoInputText =
    "ZSBFile::DataRead:: Success\n"
    "util/common/zsbFile[1869] Error reading destination file 4000 status = 22ba5000\n"
    "util/common/zsbFile[1924] Error: 22114ffb(err is fffffffb).\n";
const std::string kDataErrorText = "util/common/zsbFile[1924] Error: 22114ffd(err is fffffffd).\n";
const std::string kNothingLeftText =
    "ZSBFile::DataRead:: Success\n"
    "util/common/zsbFile[1869] Error reading destination file 4000 status = 22ba5000\n";

INSTANTIATE_TEST_SUITE_P(
    Kinds, DamagedFileKind,
    testing::Values(
        DamageCase{"EmptyFile", Raw().ShrinkSize(0), 0, kEndOfFile, kEndOfFile, ""},
        DamageCase{"CutInTheHeader", Raw().ShrinkSize(300), 0, kEndOfFile, kEndOfFile, ""},
        DamageCase{"RawCutAfterTheHeader", Raw().ShrinkSize(660), 0, kShortRead, kShortRead,
                   kShortReadText},
        DamageCase{"RawCutInARecord", Raw().ShrinkSize(660 + kRecordBytes + 100), 1, kShortRead,
                   kShortRead, kShortReadText},
        DamageCase{"RawCutBetweenRecords", Raw().ShrinkSize(660 + kRecordBytes), 1, kShortRead,
                   kShortRead, kShortReadText},
        DamageCase{"PackedCutAfterTheHeader", Packed().ShrinkSize(660), 0, kNoMoreInput,
                   kNoMoreInput, kNoInputText},
        DamageCase{"PackedCutInTheStream", Packed().ShrinkSize(700), 1, kNoMoreInput, kNoMoreInput,
                   kNoInputText},
        DamageCase{"PackedCutInTheChecksum", Packed().ShrinkSize(Packed().Size() - 2), 2,
                   kNoMoreInput, 0, kNoInputText},
        DamageCase{"SignatureFlipped", Raw().FlipByte(1, 0x20), 2, kEndOfFile, kMediaCorrupted, ""},
        DamageCase{"TrailerFlipped", Raw().FlipByte(659, 0x01), 2, kEndOfFile, kMediaCorrupted, ""},
        DamageCase{"RawBlockFlipped", Raw().FlipByte(2000, 0x01), 2, kEndOfFile, kInvalid, ""},
        DamageCase{"ZlibHeaderFlipped", Packed().FlipByte(660, 0x01), 0, kDataError, kDataError,
                   kDataErrorText},
        DamageCase{"DeflateBlockTypeFlipped", Packed().FlipByte(662, 0x06), 0, kDataError,
                   kDataError, kDataErrorText},
        DamageCase{"AdlerChecksumFlipped", Packed().FlipByte(Packed().Size() - 1, 0x01), 1,
                   kDataError, kDataError, kDataErrorText},
        DamageCase{"RawFlaggedAsCompressed", Raw().SetFlags(0x043), 0, kDataError, kDataError,
                   kDataErrorText},
        DamageCase{"CompressedFlaggedAsRaw", Packed().SetFlags(0x002), 0, kShortRead, kShortRead,
                   kShortReadText},
        DamageCase{"DataBytesZero", Raw().SetDataBytes(0), 2, kEndOfFile, kInvalid, ""},
        DamageCase{"DataBytesBelowTheHeader", Raw().SetDataBytes(659), 2, kEndOfFile, kInvalid, ""},
        DamageCase{"DataBytesTooLow", Raw().SetDataBytes(660 + kRecordBytes), 2, kEndOfFile,
                   kInvalid, ""},
        DamageCase{"DataBytesHuge", Raw().SetDataBytes(kHuge), 2, kEndOfFile, kEndOfFile, ""},
        DamageCase{"PackedDataBytesZero", Packed().SetDataBytes(0), 2, kEndOfFile, kInvalid, ""},
        DamageCase{"PackedDataBytesHuge", Packed().SetDataBytes(kHuge), 2, kEndOfFile, kEndOfFile,
                   ""},
        DamageCase{"FileEofZero", Raw().SetFileEof(0), 0, kEndOfFile, kEndOfFile, ""},
        DamageCase{"FileEofBelowTheHeader", Raw().SetFileEof(659), 0, kEndOfFile, kEndOfFile, ""},
        DamageCase{"FileEofInARecord", Raw().SetFileEof(661), 1, kEndOfFile, kEndOfFile, ""},
        DamageCase{"FileEofTooHigh", Raw().SetFileEof(660 + 3 * kRecordBytes), 2, kShortRead, 0,
                   kShortReadText},
        DamageCase{"FileEofHuge", Raw().SetFileEof(kHuge), 2, kShortRead, 0, kShortReadText},
        DamageCase{"PackedFileEofZero", Packed().SetFileEof(0), 0, kEndOfFile, kEndOfFile, ""},
        DamageCase{"PackedFileEofTooLow", Packed().SetFileEof(661), 2, kEndOfFile, 0, ""},
        DamageCase{"PackedFileEofHuge", Packed().SetFileEof(kHuge), 2, kEndOfFile, 0,
                   kNothingLeftText},
        DamageCase{"RecordTooShort", ScanFileImage::CompressedBytes(PackedPayload(4103)), 0,
                   kBufferTooSmall, kInvalid,
                   "util/common/zsbFile[1946] Size should be 4104 but is 1007.  Error: 4e24\n"},
        DamageCase{"RecordTooLong", ScanFileImage::CompressedBytes(PackedPayload(4105)), 1,
                   kBufferTooSmall, kInvalid,
                   "util/common/zsbFile[1946] Size should be 4104 but is 1.  Error: 4e24\n"},
        DamageCase{"BytesBehindTheStream", Packed().Append(std::string(20'000, 'x')), 2, kEndOfFile,
                   0, ""}),
    [](const testing::TestParamInfo<DamageCase>& row) { return std::string(row.param.name); });

class EitherDamagedFile : public DamagedFile, public testing::WithParamInterface<bool> {
  protected:
    ScanFileImage Image() const { return GetParam() ? Packed() : Raw(); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, EitherDamagedFile, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& row) {
                             return std::string(row.param ? "Compressed" : "Raw");
                         });

TEST_P(EitherDamagedFile, CutAtAnyLengthLosesTheTailAlone) {
    const ScanFileImage image = Image();
    image.Write(path_);
    for (std::size_t size = image.Size() - 1; size < image.Size(); size -= support::Stride()) {
        ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(size)), 0);
        const Outcome outcome = ReadToTheEnd();
        ASSERT_TRUE(IsFrontOf(outcome.records, records_)) << "cut at " << size;
        const bool whole = size >= ScanFileImage::kHeaderBytes;
        const int told = GetParam() ? kNoMoreInput : kShortRead;
        ASSERT_EQ(outcome.status, whole ? told : kEndOfFile) << "cut at " << size;
        if (outcome.records.size() < records_.size()) {
            ASSERT_NE(Validate(), 0) << "cut at " << size;
        }
        if (!GetParam() && whole) {
            ASSERT_EQ(outcome.records.size(), (size - 660) / kRecordBytes) << "cut at " << size;
        }
    }
}

TEST_P(EitherDamagedFile, FlippedInAnyByteIsFoundOrDoesNotMatter) {
    const ScanFileImage image = Image();
    image.Write(path_);
    const FileDescriptor file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    const auto put = [&](std::size_t offset, unsigned mask) {
        const auto byte =
            static_cast<char>(static_cast<unsigned char>(image.Bytes()[offset]) ^ mask);
        ASSERT_EQ(pwrite(file.Get(), &byte, 1, static_cast<off_t>(offset)), 1);
    };
    for (std::size_t offset = 0; offset < image.Size(); offset += support::Stride()) {
        // Raw blocks are all alike to the reader.
        const bool manyWays = GetParam() || offset < ScanFileImage::kHeaderBytes;
        for (const unsigned mask : manyWays ? std::vector{0x01U, 0x80U, 0xFFU} : std::vector{1U}) {
            put(offset, mask);
            const Outcome outcome = ReadToTheEnd();
            ASSERT_LE(outcome.records.size(), records_.size()) << offset << " with " << mask;
            if (Validate() == 0) {
                // All that may be wrong with it is where its header says that it ends.
                ASSERT_TRUE(IsFrontOf(outcome.records, records_)) << offset << " with " << mask;
            }
        }
        put(offset, 0);
    }
}

}  // namespace
