#include <gtest/gtest.h>

#include <string>

#include "tests/support/fileBytes.h"
#include "util/common/scanFileFormat.h"

namespace {

template <typename Structure>
std::string ImageOf(const Structure& structure) {
    return {reinterpret_cast<const char*>(&structure), sizeof structure};
}

TEST(ScanFileHeader, IsPackedInto660BytesWithEachFieldAtItsOffset) {
    ScanFileHeader_s header{};
    header.signature = 0x4E414353;
    header.headerVersion = 0x0102;
    header.headerRevision = 0x0304;
    header.createTime = 0x11121314;
    header.closeTime = 0x21222324;
    header.scanID.timeLow = 0x31323334;
    header.scanID.node[5] = 0x35;
    header.poolBlocks = 0x4142434445464748;
    header.fileEof = 0x5152535455565758;
    header.dataBytes = 0x6162636465666768;
    header.crc = 0x71727374;
    header.flags = 0x81828384;
    header.fileNumber = 0x91929394;
    header.compressionLevel = -1;
    header.versionMajor = 0xA1A2;
    header.versionMinor = 0xB1B2;
    header.reserved[0] = 0xC1;
    header.reserved[67] = 0xC2;
    header.poolName[0] = 0xD1D2;
    header.poolName[255] = 0xE1E2;
    header.trailerSignature = 0x4E414353;
    const std::string image = ImageOf(header);
    ASSERT_EQ(image.size(), 660U);
    EXPECT_EQ(image.substr(0, 4), "SCAN");
    EXPECT_EQ(support::U16At(image, 4), 0x0102U);
    EXPECT_EQ(support::U16At(image, 6), 0x0304U);
    EXPECT_EQ(support::U32At(image, 8), 0x11121314U);
    EXPECT_EQ(support::U32At(image, 12), 0x21222324U);
    EXPECT_EQ(support::U32At(image, 16), 0x31323334U);
    EXPECT_EQ(image[31], 0x35);
    EXPECT_EQ(support::U64At(image, 32), 0x4142434445464748U);
    EXPECT_EQ(support::U64At(image, 40), 0x5152535455565758U);
    EXPECT_EQ(support::U64At(image, 48), 0x6162636465666768U);
    EXPECT_EQ(support::U32At(image, 56), 0x71727374U);
    EXPECT_EQ(support::U32At(image, 60), 0x81828384U);
    EXPECT_EQ(support::U32At(image, 64), 0x91929394U);
    EXPECT_EQ(support::U32At(image, 68), 0xFFFFFFFFU);
    EXPECT_EQ(support::U16At(image, 72), 0xA1A2U);
    EXPECT_EQ(support::U16At(image, 74), 0xB1B2U);
    EXPECT_EQ(support::NumberAt(image, 76, 1), 0xC1U);
    EXPECT_EQ(support::NumberAt(image, 143, 1), 0xC2U);
    EXPECT_EQ(support::U16At(image, 144), 0xD1D2U);
    EXPECT_EQ(support::U16At(image, 654), 0xE1E2U);
    EXPECT_EQ(image.substr(656), "SCAN");
}

TEST(ScanFileRecord, IsTheBlockNumberAndTheImage) {
    QuadAndBlock_s record{};
    record.blockNumber = 0x0102030405060708;
    record.block[0] = 'A';
    record.block[4095] = 'Z';
    const std::string image = ImageOf(record);
    ASSERT_EQ(image.size(), 4104U);
    EXPECT_EQ(support::U64At(image, 0), 0x0102030405060708U);
    EXPECT_EQ(image[8], 'A');
    EXPECT_EQ(image[4103], 'Z');
}

TEST(ScanFileFlags, HaveTheirBits) {
    EXPECT_EQ(kFlagCompressed, 0x001U);
    EXPECT_EQ(kFlagLastFile, 0x002U);
    EXPECT_EQ(kFlagRawAfterAll, 0x004U);
    EXPECT_EQ(kFlagUserStop, 0x008U);
    EXPECT_EQ(kFlagStateChange, 0x010U);
    EXPECT_EQ(kFlagFourthCondition, 0x020U);
    EXPECT_EQ(kFlagAlwaysWithCompressed, 0x040U);
    EXPECT_EQ(kFlagError, 0x080U);
    EXPECT_EQ(kFlagUncheckedTypes, 0x100U);
    EXPECT_EQ(kFlagBypass, 0x200U);
}

TEST(ScanFileNumbers, AreThoseOfTheFormat) {
    EXPECT_EQ(kScanFileVersion, 2);
    EXPECT_EQ(kScanFileOldestVersion, 1);
    EXPECT_EQ(kScanFileRevision, 1);
    EXPECT_EQ(kScanFileCrcStart, 0xFFFFFFFFU);
    EXPECT_EQ(kScanFileSizeLimit, 10'485'760U);
    EXPECT_EQ(kMaxSetNumber, 99);
    EXPECT_EQ(kMaxFileNumber, 99'999U);
    EXPECT_EQ(kPoolBlockSize, 1U << kPoolBlockShift);
}

TEST(ScanFileRecords, AreCountedFromTheLogicalLength) {
    EXPECT_EQ(RecordsInDataBytes(660), 0U);
    EXPECT_EQ(RecordsInDataBytes(660 + 4103), 0U);
    EXPECT_EQ(RecordsInDataBytes(660 + 4104), 1U);
    EXPECT_EQ(RecordsInDataBytes(10'486'380), 2555U);
    EXPECT_EQ(RecordsInDataBytes(0), 0U);
    EXPECT_EQ(RecordsInDataBytes(659), 0U);
}

}  // namespace
