#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/fileBytes.h"
#include "tests/support/inflated.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/stride.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/fileDescriptor.h"
#include "util/common/scanFileStudy.h"
#include "util/common/scanSetCheck.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using testing::ElementsAreArray;

constexpr std::size_t kRecordBytes = 4104;
constexpr std::uint64_t kHuge = ~std::uint64_t{0};

ScanFileImage Closed(ScanFileImage image) {
    return image.SetNumber(12, 4, 1'700'000'000).SetNumber(32, 8, 100);
}
ScanFileImage Raw() {
    return Closed(ScanFileImage::Raw({MakeTestRecord(3), MakeTestRecord(7, "BRCH")}));
}
ScanFileImage Packed() {
    return Closed(ScanFileImage::Compressed({MakeTestRecord(3), MakeTestRecord(7, "BRCH")}));
}
ScanFileImage PackedPayload(std::size_t size) {
    std::string payload = Raw().Bytes().substr(660);
    payload.resize(size, 'x');
    return Closed(ScanFileImage::CompressedBytes(payload));
}

class DamagedSet : public testing::Test {
  protected:
    /// The codes of all that is wrong with a set of this one file.
    std::vector<std::string> CodesOf(const ScanFileImage& image) {
        image.Write(path_);
        return Codes();
    }

    std::vector<std::string> Codes() {
        std::vector<std::string> codes;
        const ScanSetReport report = CheckScanSet(ScanSet(path_), 1);
        for (const ScanProblem& problem : report.problems) {
            codes.emplace_back(problem.code);
        }
        records_ = report.records;
        return codes;
    }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("T0000000.ZSB");
    support::CapturedLog log_;
    std::uint64_t records_ = 0;
};

struct DamageCase {
    const char* name;
    ScanFileImage image;
    std::uint64_t records;  ///< that can be read whole
    std::vector<std::string> codes;
};

void PrintTo(const DamageCase& row, std::ostream* stream) {
    *stream << row.name;
}

class DamagedSetKind : public DamagedSet, public testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedSetKind, HasItsProblems) {
    EXPECT_THAT(CodesOf(GetParam().image), ElementsAreArray(GetParam().codes));
    EXPECT_EQ(records_, GetParam().records);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DamagedSetKind,
    testing::Values(
        DamageCase{"Sound", Raw(), 2, {}}, DamageCase{"PackedSound", Packed(), 2, {}},
        DamageCase{"EmptyFile", Raw().ShrinkSize(0), 0, {"no-last-file", "short-header"}},
        DamageCase{"CutInTheHeader", Raw().ShrinkSize(300), 0, {"no-last-file", "short-header"}},
        DamageCase{"RawCutAfterTheHeader", Raw().ShrinkSize(660), 0, {"truncated"}},
        DamageCase{"RawCutInARecord", Raw().ShrinkSize(660 + kRecordBytes + 100), 1, {"truncated"}},
        DamageCase{"RawCutBetweenRecords", Raw().ShrinkSize(660 + kRecordBytes), 1, {"truncated"}},
        DamageCase{"PackedCutAfterTheHeader", Packed().ShrinkSize(660), 0, {"truncated"}},
        DamageCase{"PackedCutInTheStream", Packed().ShrinkSize(700), 1, {"truncated"}},
        DamageCase{
            "PackedCutInTheChecksum", Packed().ShrinkSize(Packed().Size() - 2), 2, {"truncated"}},
        DamageCase{"SignatureFlipped", Raw().FlipByte(1, 0x20), 2, {"bad-signature"}},
        DamageCase{"TrailerFlipped", Raw().FlipByte(659, 0x01), 2, {"bad-signature"}},
        DamageCase{"BothSignaturesFlipped",
                   Raw().FlipByte(1, 0x20).FlipByte(659, 0x01),
                   0,
                   {"no-last-file", "bad-signature"}},
        DamageCase{"RawBlockFlipped", Raw().FlipByte(2000, 0x01), 2, {"crc"}},
        DamageCase{"ZlibHeaderFlipped", Packed().FlipByte(660, 0x01), 0, {"deflate"}},
        DamageCase{"DeflateBlockTypeFlipped", Packed().FlipByte(662, 0x06), 0, {"deflate"}},
        DamageCase{
            "AdlerChecksumFlipped", Packed().FlipByte(Packed().Size() - 1, 0x01), 1, {"deflate"}},
        DamageCase{"RawFlaggedAsCompressed", Raw().SetFlags(0x043), 0, {"deflate"}},
        DamageCase{"CompressedFlaggedAsRaw", Packed().SetFlags(0x002), 0, {"truncated"}},
        DamageCase{"DataBytesZero", Raw().SetDataBytes(0), 2, {"trailing-data"}},
        DamageCase{"DataBytesBelowTheHeader", Raw().SetDataBytes(659), 2, {"trailing-data"}},
        DamageCase{"DataBytesTooLow", Raw().SetDataBytes(660 + kRecordBytes), 2, {"trailing-data"}},
        DamageCase{"DataBytesHuge", Raw().SetDataBytes(kHuge), 2, {"truncated"}},
        DamageCase{"PackedDataBytesZero", Packed().SetDataBytes(0), 2, {"trailing-data"}},
        DamageCase{"PackedDataBytesHuge", Packed().SetDataBytes(kHuge), 2, {"truncated"}},
        DamageCase{"FileEofZero", Raw().SetFileEof(0), 0, {"trailing-data", "truncated", "crc"}},
        DamageCase{"FileEofBelowTheHeader",
                   Raw().SetFileEof(659),
                   0,
                   {"trailing-data", "truncated", "crc"}},
        DamageCase{"FileEofInARecord", Raw().SetFileEof(661), 0, {"truncated", "trailing-data"}},
        DamageCase{"FileEofTooHigh", Raw().SetFileEof(660 + 3 * kRecordBytes), 2, {"truncated"}},
        DamageCase{"FileEofHuge", Raw().SetFileEof(kHuge), 2, {"truncated"}},
        DamageCase{"PackedFileEofZero", Packed().SetFileEof(0), 0, {"deflate", "trailing-data"}},
        DamageCase{"PackedFileEofTooLow", Packed().SetFileEof(661), 2, {"trailing-data"}},
        DamageCase{"PackedFileEofHuge", Packed().SetFileEof(kHuge), 2, {"truncated"}},
        DamageCase{"RecordTooShort", PackedPayload(4103), 0, {"truncated"}},
        DamageCase{"RecordTooLong", PackedPayload(4105), 1, {"truncated"}},
        DamageCase{"BytesBehindTheStream",
                   Packed().Append(std::string(20'000, 'x')),
                   2,
                   {"trailing-data"}}),
    [](const testing::TestParamInfo<DamageCase>& row) { return std::string(row.param.name); });

class EitherDamagedSet : public DamagedSet, public testing::WithParamInterface<bool> {
  protected:
    ScanFileImage Image() const { return GetParam() ? Packed() : Raw(); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, EitherDamagedSet, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& row) {
                             return std::string(row.param ? "Compressed" : "Raw");
                         });

TEST_P(EitherDamagedSet, IsFoundWhereverItIsCut) {
    const ScanFileImage image = Image();
    image.Write(path_);
    for (std::size_t size = image.Size() - 1; size < image.Size(); size -= support::Stride()) {
        ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(size)), 0);
        const std::vector<std::string> wanted =
            size < ScanFileImage::kHeaderBytes
                ? std::vector<std::string>{"no-last-file", "short-header"}
                : std::vector<std::string>{"truncated"};
        ASSERT_EQ(Codes(), wanted) << "cut at " << size;
    }
}

TEST_P(EitherDamagedSet, IsFoundWhicheverByteOfItsDataIsFlipped) {
    const ScanFileImage image = Image();
    const std::string records = Raw().Bytes().substr(660);
    image.Write(path_);
    const FileDescriptor file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    const auto put = [&](std::size_t offset, unsigned mask) {
        const auto byte =
            static_cast<char>(static_cast<unsigned char>(image.Bytes()[offset]) ^ mask);
        ASSERT_EQ(pwrite(file.Get(), &byte, 1, static_cast<off_t>(offset)), 1);
    };
    for (std::size_t offset = 660; offset < image.Size(); offset += support::Stride()) {
        for (const unsigned mask :
             GetParam() ? std::vector{0x01U, 0x80U, 0xFFU} : std::vector{1U}) {
            put(offset, mask);
            // A compressed stream is filled up to whole bytes by bits that say nothing.
            const bool same =
                GetParam() && support::Inflated(support::ReadFile(path_).substr(660)) == records;
            ASSERT_EQ(Codes().empty(), same) << offset << " with " << mask;
        }
        put(offset, 0);
    }
    EXPECT_TRUE(Codes().empty());
}

}  // namespace
