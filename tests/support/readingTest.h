#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/zsbFile.h"

namespace support {

inline bool operator==(const QuadAndBlock_s& read, const TestRecord& wanted) {
    return read.blockNumber == wanted.number &&
           std::string_view(read.block, sizeof read.block) == wanted.block;
}

/// For tests of a scan file reader on a directory of its own.
class ReadingTest : public testing::Test {
  protected:
    static std::unique_ptr<ZSBFile> MakeReader(const std::string& path) {
        return ZSBFile::ForReading(path.c_str());
    }

    std::string Path(const std::string& name) const { return directory_.File(name); }

    void WriteEmpty(const std::string& name) const { ScanFileImage::Raw({}).Write(Path(name)); }

    void Remove(const std::string& name) const { std::filesystem::remove(Path(name)); }

    /// Opens a file of its own making.
    void OpenImage(const ScanFileImage& image) {
        image.Write(Path("image.ZRB"));
        ASSERT_EQ(file_->Open(Path("image.ZRB")), 0);
    }

    std::string CurrentName() const {
        std::string name;
        file_->CurrentFullName(name);
        return std::filesystem::path(name).filename();
    }

    void ExpectRecord(const TestRecord& wanted) {
        QuadAndBlock_s record{};
        ASSERT_EQ(file_->QuadAndBlockRead(&record, nullptr), 0);
        EXPECT_TRUE(record == wanted) << "block " << record.blockNumber;
    }

    int ReadStatus() {
        QuadAndBlock_s record{};
        return file_->QuadAndBlockRead(&record, nullptr);
    }

    TemporaryDirectory directory_;
    CapturedLog log_;
    std::unique_ptr<ZSBFile> file_ = MakeReader(directory_.Path());
    const std::vector<TestRecord> records_{MakeTestRecord(3), MakeTestRecord(7, "BRCH")};
};

}  // namespace support
