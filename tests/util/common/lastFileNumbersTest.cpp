#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/errors.h"
#include "util/common/zsbFile.h"

namespace {

constexpr std::uint32_t kStart = 99'998;

/// A set that has come to the last numbers that a name can hold.
class LastFileNumbers : public testing::Test {
  protected:
    ZSBFile Start() const { return ZSBFile({.path = directory_.Path(), .firstFile = kStart}); }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.Path())) {
            names.push_back(entry.path().filename());
        }
        std::ranges::sort(names);
        return names;
    }

    support::TemporaryDirectory directory_;
    support::CapturedLog log_;
};

TEST_F(LastFileNumbers, AreWrittenAndThenNoMoreFile) {
    ZSBFile file = Start();
    for (std::uint32_t number = kStart; number <= kMaxFileNumber; ++number) {
        ASSERT_EQ(file.CreateNext(true), 0) << number;
        ASSERT_EQ(file.CreateClose(false, false, false, false, nullptr), 0) << number;
        ScanFileHeader_s header{};
        file.CopyZSBHeader(&header);
        EXPECT_EQ(header.fileNumber, number);
    }
    EXPECT_EQ(file.CreateNext(true), zERR_BAD_PARAMETER_VALUE);
    EXPECT_EQ(file.CreateNext(true), zERR_BAD_PARAMETER_VALUE);
    EXPECT_EQ(Names(), (std::vector<std::string>{"T0099998.ZSB", "T0099999.ZSB"}));
}

TEST_F(LastFileNumbers, AreReadAndThenNoMoreFile) {
    for (const char* name : {"T0099998.ZRB", "T0099999.ZRB", "T00100000.ZRB"}) {
        support::ScanFileImage::Raw({support::MakeTestRecord(7)}).Write(directory_.File(name));
    }
    ZSBFile file = Start();
    for (std::uint32_t number = kStart; number <= kMaxFileNumber; ++number) {
        ASSERT_EQ(file.OpenNext(ZSBFile::kOpenAnyZRB), 0) << number;
        EXPECT_EQ(file.BlocksInFileGet(), 1U);
        ASSERT_EQ(file.OpenNextClose(), 0) << number;
    }
    EXPECT_EQ(file.OpenNext(ZSBFile::kOpenAnyZRB), zERR_BAD_PARAMETER_VALUE);
}

}  // namespace
