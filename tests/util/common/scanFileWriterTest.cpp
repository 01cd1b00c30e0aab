#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanFileWriter.h"

namespace {

using support::MakeBlock;
using support::ScanFileParts;

constexpr int kBadParameter = 20008;
constexpr int kInvalidState = 20010;

/// Uses the writer by itself.
class FileWriter : public testing::Test {
  protected:
    ScanFileSettings Settings() const { return {.path = directory_.Path(), .poolName = "DATA"}; }

    int Append(ScanFileWriter& writer, std::uint64_t number, const std::string& block) {
        const std::string record = support::MakeRecord(number, block);
        records_ += record;
        return writer.Append(reinterpret_cast<const unsigned char*>(record.data()), record.size());
    }

    ScanFileParts Parts(const std::string& name) const {
        return ScanFileParts(directory_.File(name));
    }

    support::TemporaryDirectory directory_;
    support::CapturedLog log_;
    std::string records_;
};

TEST_F(FileWriter, WritesASetFileByFile) {
    for (const bool compress : {false, true}) {
        ScanFileSettings settings = Settings();
        settings.compress = compress;
        ScanFileWriter writer(settings);
        for (const std::string number : {"0000000", "0000001"}) {
            const std::string name = (compress ? "C" : "T") + number + ".ZSB";
            records_.clear();
            EXPECT_EQ(writer.NextPath(true), directory_.File(name));
            ASSERT_EQ(writer.Create(true), 0);
            ASSERT_EQ(Append(writer, 1, MakeBlock("SPB5")), 0);
            unsigned long crc = 0;
            ASSERT_EQ(writer.Close({.lastFile = true}, &crc), 0);
            EXPECT_EQ(compress ? Parts(name).InflatedData() : Parts(name).Data(), records_);
            EXPECT_EQ(Parts(name).Crc(), crc);
            EXPECT_EQ(Parts(name).Flags(), compress ? 0x043U : 0x002U);
        }
    }
}

TEST_F(FileWriter, RefusesWhatNeedsAFileAndCreatesNoSecondOne) {
    ScanFileWriter writer(Settings());
    for (const char* when : {"before", "after"}) {
        EXPECT_EQ(writer.Append(nullptr, 0), kInvalidState) << when;
        EXPECT_EQ(writer.Compress(nullptr, 0), kInvalidState) << when;
        EXPECT_EQ(writer.WriteData(nullptr, 0), kInvalidState) << when;
        EXPECT_EQ(writer.Flush(), kInvalidState) << when;
        EXPECT_EQ(writer.EndCompression(), kInvalidState) << when;
        EXPECT_EQ(writer.WriteHeader(), kInvalidState) << when;
        EXPECT_EQ(writer.Close({}, nullptr), kInvalidState) << when;
        ASSERT_EQ(writer.Create(true), 0);
        EXPECT_EQ(writer.Create(true), kInvalidState) << when;
        ASSERT_EQ(writer.Close({}, nullptr), 0);
    }
}

TEST_F(FileWriter, HasNoPathForNumbersThatNoNameHolds) {
    for (const int set : {-1, 100}) {
        ScanFileSettings settings = Settings();
        settings.setNumber = set;
        ScanFileWriter writer(settings);
        EXPECT_EQ(writer.NextPath(true), std::nullopt) << set;
        EXPECT_EQ(writer.Create(true), kBadParameter) << set;
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(FileWriter, ChecksItsSettings) {
    ScanFileSettings settings = Settings();
    settings.poolName = std::string(64, 'P');
    EXPECT_THROW(ScanFileWriter{settings}, std::invalid_argument);
}

TEST_F(FileWriter, ClosesAFileLeftOpenAsStopped) {
    ScanFileWriter(Settings()).Create(false);
    EXPECT_EQ(Parts("T0000000.ZRB").Flags(), 0x008U);
}

TEST(FileSettings, NameTheFilesOfASet) {
    ScanFileSettings settings;
    EXPECT_EQ(settings.FileName(0, true), "T0000000.ZSB");
    EXPECT_EQ(settings.FileName(99'999, false), "T0099999.ZRB");
    EXPECT_EQ(settings.FileName(100'000, true), std::nullopt);
    settings.compress = true;
    settings.setNumber = 99;
    EXPECT_EQ(settings.FileName(12, true), "C9900012.ZSB");
}

}  // namespace
