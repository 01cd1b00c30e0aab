#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanFileCheck.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;

constexpr int kInvalidState = 20010;
constexpr int kMediaCorrupted = 20012;
constexpr int kEndOfFile = 20100;
constexpr int kInvalid = 0x22DA5E25;

class FileCheck : public testing::Test {
  protected:
    int Validate(const ScanFileImage& image) {
        warnings_.clear();
        reader_.Close();
        image.Write(path_);
        EXPECT_EQ(reader_.Open(path_), 0);
        return check_.Validate();
    }

    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("image.ZRB");
    support::CapturedLog log_;
    std::vector<std::pair<std::string, std::uint64_t>> warnings_;
    ScanFileReader reader_;
    ScanFileCheck check_{reader_, [this](const char* text, std::uint64_t block) {
                             warnings_.emplace_back(text, block);
                         }};
};

TEST_F(FileCheck, NeedsAnOpenFile) {
    QuadAndBlock_s record{};
    EXPECT_EQ(check_.Validate(), kInvalidState);
    EXPECT_EQ(check_.Search(&record, 3), kInvalidState);
    EXPECT_EQ(check_.Fault(), 0);
}

TEST_F(FileCheck, TellsEachWarningAndItsBlock) {
    EXPECT_EQ(Validate(ScanFileImage::Raw({MakeTestRecord(5), MakeTestRecord(5),
                                           MakeTestRecord(6, "none"), MakeTestRecord(2)})),
              0);
    EXPECT_EQ(warnings_, (decltype(warnings_){{"Out of order blocks found", 5},
                                              {"Non-system block found", 6},
                                              {"Out of order blocks found", 2}}));
}

TEST_F(FileCheck, BeginsEachPassWithoutTheOnesBefore) {
    const ScanFileImage image = ScanFileImage::Raw({MakeTestRecord(5), MakeTestRecord(6)});
    EXPECT_EQ(Validate(image), 0);
    EXPECT_EQ(check_.Validate(), 0);
    EXPECT_EQ(warnings_, (decltype(warnings_){}));
}

TEST_F(FileCheck, TellsAFaultOfTheFileFromAFailedRead) {
    const ScanFileImage image = ScanFileImage::Raw({MakeTestRecord(5), MakeTestRecord(6)});
    EXPECT_EQ(Validate(ScanFileImage(image).FlipByte(0)), kMediaCorrupted);
    EXPECT_EQ(check_.Fault(), kMediaCorrupted);
    EXPECT_EQ(Validate(ScanFileImage(image).FlipByte(ScanFileImage::kCrcAt)), kInvalid);
    EXPECT_EQ(check_.Fault(), kInvalid);
    EXPECT_EQ(Validate(ScanFileImage::Raw({})), kInvalid);
    EXPECT_EQ(check_.Fault(), kInvalid);
    EXPECT_EQ(Validate(ScanFileImage(image).SetFileEof(661)), kEndOfFile);
    EXPECT_EQ(check_.Fault(), 0);
}

}  // namespace
