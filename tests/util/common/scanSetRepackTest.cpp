#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "tests/support/fileBytes.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetRepack.h"

namespace {

using support::MakeTestRecord;
using support::ReadFile;
using support::ScanFileImage;

class ScanSetRepackTest : public testing::Test {
  protected:
    ScanSetRepackTest() {
        for (unsigned number = 0; number < kFiles; ++number) {
            Put(number, number + 1 == kFiles ? 0x202 : 0x200);
        }
    }

    void Put(unsigned number, std::uint32_t flags) {
        ScanFileImage::Raw({MakeTestRecord(2 * number), MakeTestRecord(2 * number + 1)}, flags)
            .SetNumber(12, 4, 1'700'000'000)
            .SetNumber(32, 8, 1000)
            .SetNumber(64, 4, number)
            .SetNumber(68, 4, 0xFFFFFFFF)
            .Write(from_.File(Name('T', number)));
    }

    static std::string Name(char letter, unsigned number) {
        return ScanFileName{letter, false, 0, number}.Text();
    }

    static constexpr unsigned kFiles = 9;

    support::TemporaryDirectory from_;
    support::TemporaryDirectory packed_;
    support::TemporaryDirectory back_;
};

TEST_F(ScanSetRepackTest, GoesThereAndBackOnSeveralThreads) {
    std::atomic<std::uint64_t> told = 0;
    const ScanSet raw(from_.Path());
    EXPECT_TRUE(ScanSetRepack(raw, true)
                    .Run(packed_.Path(), 4, [&told](std::uint64_t bytes) { told += bytes; })
                    .Restorable());
    EXPECT_EQ(told, raw.Bytes());
    const ScanSet packed(packed_.Path());
    EXPECT_EQ(packed.Files().size(), kFiles);
    EXPECT_LT(packed.Bytes(), raw.Bytes());
    EXPECT_TRUE(ScanSetRepack(packed, false).Run(back_.Path(), 4, {}).Restorable());
    for (unsigned number = 0; number < kFiles; ++number) {
        EXPECT_EQ(ReadFile(back_.File(Name('T', number))), ReadFile(from_.File(Name('T', number))));
    }
}

TEST_F(ScanSetRepackTest, DoesNotBeginWhereHeadersSpeakAgainstASet) {
    Put(4, 0x208);
    EXPECT_FALSE(
        ScanSetRepack(ScanSet(from_.Path()), true).Run(packed_.Path(), 4, {}).Restorable());
    EXPECT_TRUE(std::filesystem::is_empty(packed_.Path()));
}

TEST_F(ScanSetRepackTest, NamesTheFileThatCannotBeBroughtIntoTheForm) {
    EXPECT_FALSE(ScanSetRepack(ScanSet(from_.Path()), true).Obstacle());
    EXPECT_EQ(ScanSetRepack(ScanSet(from_.Path()), false).Obstacle()->file, Name('T', 0));
    Put(3, 0x004);
    EXPECT_EQ(ScanSetRepack(ScanSet(from_.Path()), true).Obstacle()->file, Name('T', 3));
}

TEST_F(ScanSetRepackTest, ThrowsWhatAThreadFailedWith) {
    const ScanSet raw(from_.Path());
    const support::FileSizeLimit limit(700);
    EXPECT_THROW(ScanSetRepack(raw, true).Run(packed_.Path(), 4, {}), std::system_error);
}

}  // namespace
