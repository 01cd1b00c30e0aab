#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "tests/support/enginePass.h"
#include "tests/support/openFiles.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileParts.h"
#include "util/common/serviceFiles.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

using support::MakeBlock;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr int kSystemError = 0x22BA5000;

class Engine : public support::EnginePass {
  protected:
    /// A device that fails validation and so stays open for the calls that need one.
    void OpenDevice(const std::string& device) {
        EXPECT_EQ(Run(engine_, {.device = device}), 1);
        EXPECT_EQ(engine_.ErrorLocation(), "util/ostrelscan/scanEngine[524]");
    }

    void WriteDevice(const std::string& superblock) {
        support::WriteFile(device_, MakeBlock("") + MakeBlock(superblock) + MakeBlock("LEAF"));
    }

    ScanEngine engine_{true, true};
    char block_[4096] = "";
};

TEST_F(Engine, BeginsIdle) {
    unsigned long long current = 1;
    unsigned long long done = 1;
    unsigned long long readErrors = 1;
    unsigned long long writeErrors = 1;
    EXPECT_EQ(engine_.GetStatistics(&current, &done, &readErrors, &writeErrors), 0);
    EXPECT_EQ(current, 0U);
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(readErrors, 0U);
    EXPECT_EQ(writeErrors, 0U);
    EXPECT_FALSE(engine_.Finished());
    EXPECT_EQ(engine_.Result(), 0);
    EXPECT_EQ(engine_.ErrorMessage(), "Scan engine is still running");
    EXPECT_EQ(engine_.ErrorLocation(), "util/ostrelscan/scanEngine[131]");
    EXPECT_EQ(engine_.FirstBlock(), 0U);
    EXPECT_EQ(engine_.LastBlock(), 0U);
    EXPECT_EQ(engine_.BlocksInPool(), 0U);
    EXPECT_FALSE(engine_.History().ScanFileFactsLast().Valid());
}

TEST_F(Engine, TakesTheNextThreadNumberForItsTitle) {
    const ScanEngine next(true, true);
    EXPECT_EQ(next.ThreadId(), engine_.ThreadId() + 1);
    char title[32] = "";
    std::snprintf(title, sizeof title, "KUVO Pool Scan %03d", next.ThreadId());
    EXPECT_EQ(next.Title(), title);
}

TEST(EngineDeathTest, NumbersTheFirstEngineOfAProcessZero) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const ScanEngine first(true, true);
            const ScanEngine second(true, true);
            const bool good = first.ThreadId() == 0 && first.Title() == "KUVO Pool Scan 000" &&
                              second.Title() == "KUVO Pool Scan 001";
            std::_Exit(good ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Engine, WritesOnlyTheBlockNumbersForNullErrorCounts) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("SPB5"));
    ASSERT_EQ(Run(engine_), 0);
    unsigned long long current = 0;
    unsigned long long done = 0;
    unsigned long long errors = 99;
    EXPECT_EQ(engine_.GetStatistics(&current, &done, nullptr, nullptr), 0);
    EXPECT_EQ(current, 3U);
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(engine_.GetStatistics(&current, &done, &errors, nullptr), 0);
    EXPECT_EQ(errors, 1U);
    EXPECT_EQ(engine_.GetStatistics(&current, &done, nullptr, &errors), 0);
    EXPECT_EQ(errors, 0U);
}

TEST_F(Engine, RefusesASecondPassAndLeavesTheFirstUndisturbed) {
    ASSERT_EQ(mkfifo(device_.c_str(), 0600), 0);
    ScanEngine engine(true, false);
    DumpOptions options = Options({});
    ASSERT_EQ(engine.RunDump(selector_, options), 0);
    BlockSelector otherSelector;
    DumpOptions otherOptions(5, 9, true, "/nowhere", "OTHER", "/nowhere/", true);
    EXPECT_EQ(engine.RunDump(otherSelector, otherOptions), 20010);
    EXPECT_FALSE(engine.Finished());

    const int feeder = open(device_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(feeder, 0);
    while (engine.BlocksInPool() == 0) {
        Ostrel::LB_delay(1);
    }
    EXPECT_EQ(engine.RunDump(otherSelector, otherOptions), 20010);
    const std::string image = MakeBlock("LEAF") + MakeBlock("SPB5") + MakeBlock("");
    EXPECT_EQ(write(feeder, image.data(), image.size()), static_cast<ssize_t>(image.size()));
    close(feeder);
    AwaitEnd(engine);
    EXPECT_EQ(engine.Result(), 0);
    EXPECT_EQ(support::ScanFileParts(FilePath(engine, 0)).Data().size(), 3U * 4104);
    EXPECT_EQ(otherSelector.BlockSelectGet(BlockMagic("LEAF"))->count, 0U);
}

TEST_F(Engine, RunsPassesOneAfterTheOtherAndKeepsItsStatistics) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("SPB5"));
    ASSERT_EQ(Run(engine_), 0);
    ASSERT_EQ(Run(engine_), 0);
    unsigned long long current = 0;
    unsigned long long done = 0;
    unsigned long long readErrors = 0;
    engine_.GetStatistics(&current, &done, &readErrors, nullptr);
    EXPECT_EQ(current, 3U);
    EXPECT_EQ(done, 4U);
    EXPECT_EQ(readErrors, 2U);
}

/// Fails in a way that no layer knows.
struct UnknownFailure : ServiceFiles {
    UnknownFailure() : previous(ReplaceServiceFiles(this)) {}
    ~UnknownFailure() override { ReplaceServiceFiles(previous); }
    std::FILE* Open(const char* /*path*/, const char* /*mode*/) override { throw 42; }

    ServiceFiles* previous;
};

TEST_F(Engine, EndsThePassWhateverIsThrown) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("SPB5"));
    const UnknownFailure failure;
    ScanEngine engine(false, true);
    EXPECT_EQ(Run(engine), 1);
    EXPECT_EQ(engine.ErrorMessage(), "Exception while running a pass:  of no known type\n");
    EXPECT_EQ(engine.ErrorLocation(), "util/ostrelscan/scanEngine[402]");
    EXPECT_THAT(log_.Text(), EndsWith(engine.ErrorMessage()));
}

/// Makes thread creation fail: no machine has room for such a stack.
class HugeStacks {
  public:
    HugeStacks() {
        pthread_getattr_default_np(&old_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 46);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~HugeStacks() {
        pthread_setattr_default_np(&old_);
        pthread_attr_destroy(&old_);
    }
    HugeStacks(const HugeStacks&) = delete;
    HugeStacks& operator=(const HugeStacks&) = delete;

  private:
    pthread_attr_t old_{};
};

TEST_F(Engine, ReturnsTheErrorOfAThreadThatCannotBeMadeAndStaysIdle) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("SPB5") + MakeBlock("LEAF"));
    DumpOptions options = Options({});
    {
        const HugeStacks hugeStacks;
        EXPECT_EQ(engine_.RunDump(selector_, options), EAGAIN);
    }
    EXPECT_FALSE(engine_.Finished());
    EXPECT_EQ(Run(engine_), 0);
}

TEST_F(Engine, CanBeDestroyedAtOnceWhenFinishedIsSeen) {
    for (int i = 0; i < 10; ++i) {
        auto engine = std::make_unique<ScanEngine>(true, false);
        DumpOptions options = Options({.device = i % 2 == 0 ? "/nowhere" : "/dev/null"});
        ASSERT_EQ(engine->RunDump(selector_, options), 0);
        while (!engine->Finished()) {
        }
        engine.reset();
    }
}

TEST_F(Engine, ReadsABlockOrSaysWhyNot) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("sbo5") + MakeBlock("LEAF") + "tail");
    OpenDevice(device_);
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 2), 0);
    EXPECT_EQ(std::string(block_, 4096), MakeBlock("LEAF"));
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 3), 20100);
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 4), 20100);
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 1ULL << 51), kSystemError + EINVAL);
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 0), 0);
    EXPECT_EQ(engine_.ReadErrors().count, 0U);
    EXPECT_EQ(Count("LEAF"), 0U);
}

TEST_F(Engine, ReportsTheSystemsErrorOfAFailedRead) {
    OpenDevice(directory_.Path());
    EXPECT_EQ(engine_.ReadPoolBlk(block_, 0), kSystemError + EISDIR);
    EXPECT_EQ(engine_.ValidateSBHSimple(), kSystemError + EISDIR);
    EXPECT_EQ(engine_.ValidateSBHSimple(selector_), kSystemError + EISDIR);
    EXPECT_EQ(engine_.ReadAndExaminePoolBlk(block_, 7), 20424);
    EXPECT_EQ(engine_.ReadErrors().last.status, kSystemError + EISDIR);
    EXPECT_EQ(engine_.ReadErrors().last.block, 7U);
}

TEST_F(Engine, CountsAnExaminedBlockUnderItsTypeSelectedOrNot) {
    WriteDevice("sbo5");
    OpenDevice(device_);
    EXPECT_EQ(engine_.ReadAndExaminePoolBlk(block_, 2), 0);
    EXPECT_EQ(std::string(block_, 4096), MakeBlock("LEAF"));
    selector_.SelectOff(BlockMagic("LEAF"));
    EXPECT_EQ(engine_.ReadAndExaminePoolBlk(block_, 2), 20424);
    EXPECT_EQ(Count("LEAF"), 2U);
    EXPECT_EQ(engine_.ReadErrors().count, 0U);
}

TEST_F(Engine, TracksEveryFailureOfAnExaminedBlockAndSkipsIt) {
    WriteDevice("sbo5");
    OpenDevice(device_);
    const std::size_t before = log_.Text().size();
    EXPECT_EQ(engine_.ReadAndExaminePoolBlk(block_, 3), 20424);
    EXPECT_EQ(engine_.ReadErrors().last.status, 20100);
    EXPECT_EQ(engine_.ReadErrors().last.block, 3U);
    EXPECT_STREQ(engine_.ReadErrors().last.file, "util/ostrelscan/scanEngine");
    const std::string line = std::to_string(engine_.ReadErrors().last.line);
    EXPECT_EQ(log_.Text().substr(before),
              "TrackReadErrorStats\n  Read error recorded from util/ostrelscan/scanEngine[" + line +
                  "]  Block - 3 Status - 4e84\n");
    EXPECT_EQ(engine_.ReadAndExaminePoolBlk(block_, 1ULL << 51), 20424);
    EXPECT_EQ(engine_.ReadErrors().last.status, kSystemError + EINVAL);
    EXPECT_NE(std::to_string(engine_.ReadErrors().last.line), line);
    EXPECT_THAT(log_.Text(), EndsWith("  Block - 8000000000000 Status - 22ba5016\n"));
    EXPECT_EQ(engine_.ReadErrors().count, 2U);
}

TEST_F(Engine, RecordsTheLastErrorOfEachDirection) {
    engine_.TrackReadErrorStats("util/read", 1234, kSystemError + EIO, 255);
    engine_.TrackWriteErrorStats("util/write", 56, 28576, 0x10);
    EXPECT_EQ(log_.Text(),
              "TrackReadErrorStats\n"
              "  Read error recorded from util/read[1234]  Block - ff Status - 22ba5005\n"
              "TrackWriteErrorStats\n"
              "  Write error recorded from util/write[56]  Block - 10 Status - 6fa0\n");
    EXPECT_EQ(engine_.ReadErrors().count, 1U);
    EXPECT_STREQ(engine_.ReadErrors().last.file, "util/read");
    EXPECT_EQ(engine_.ReadErrors().last.line, 1234U);
    EXPECT_EQ(engine_.ReadErrors().last.status, kSystemError + EIO);
    EXPECT_EQ(engine_.ReadErrors().last.block, 255U);
    EXPECT_EQ(engine_.WriteErrors().count, 1U);
    EXPECT_STREQ(engine_.WriteErrors().last.file, "util/write");
    EXPECT_EQ(engine_.WriteErrors().last.line, 56U);
    EXPECT_EQ(engine_.WriteErrors().last.status, 28576);
    EXPECT_EQ(engine_.WriteErrors().last.block, 16U);
    unsigned long long current = 0;
    unsigned long long done = 0;
    unsigned long long writeErrors = 0;
    engine_.GetStatistics(&current, &done, nullptr, &writeErrors);
    EXPECT_EQ(writeErrors, 1U);
}

TEST_F(Engine, KeepsErrorNumbersApartFromTheLogsBase) {
    std::cerr << std::dec;
    engine_.TrackReadErrorStats("util/read", 1234, 20100, 255);
    EXPECT_THAT(log_.Text(), EndsWith("util/read[1234]  Block - ff Status - 4e84\n"));
}

TEST_F(Engine, CountsTheThousandthErrorWithoutDetail) {
    for (unsigned i = 1; i <= 999; ++i) {
        engine_.TrackReadErrorStats("util/read", i, 20100, i);
        engine_.TrackWriteErrorStats("util/write", i, 28576, i);
    }
    EXPECT_THAT(log_.Text(), HasSubstr("util/read[999]  Block - 3e7 Status - 4e84\n"));
    const std::size_t before = log_.Text().size();
    for (unsigned i = 1000; i <= 1001; ++i) {
        engine_.TrackReadErrorStats("util/read", i, 20100, i);
        engine_.TrackWriteErrorStats("util/write", i, 28576, i);
    }
    EXPECT_EQ(log_.Text().substr(before),
              "TrackReadErrorStats\nTrackWriteErrorStats\nTrackReadErrorStats\n"
              "TrackWriteErrorStats\n");
    EXPECT_EQ(engine_.ReadErrors().count, 1001U);
    EXPECT_EQ(engine_.ReadErrors().last.line, 999U);
    EXPECT_EQ(engine_.ReadErrors().last.block, 999U);
    EXPECT_EQ(engine_.WriteErrors().count, 1001U);
    EXPECT_EQ(engine_.WriteErrors().last.line, 999U);
    EXPECT_EQ(engine_.WriteErrors().last.block, 999U);
}

TEST_F(Engine, FailsTheValidationOfAnythingButASuperblockHeader) {
    for (const char* magic : {"sbo5", "so64", "LEAF", "", "????SPB5"}) {
        WriteDevice(magic);
        OpenDevice(device_);
        EXPECT_EQ(engine_.ValidateSBHSimple(), 24861) << magic;
        EXPECT_EQ(engine_.ValidateSBHSimple(selector_), 24861) << magic;
        EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("LEAF").data()), 1);
        EXPECT_EQ(selector_.IsSelectedBlock(MakeBlock("BtqZ").data()), 1);
    }
}

TEST_F(Engine, FailsTheValidationOfADeviceThatIsTooShortForBlock1) {
    support::WriteFile(device_, support::Join({MakeBlock(""), "SPB5"}));
    OpenDevice(device_);
    EXPECT_EQ(engine_.ValidateSBHSimple(), 20100);
}

/// The device stays open in the engine, so it can get another superblock afterwards.
TEST_F(Engine, SwitchesOffTheLeafOfTheOtherFormat) {
    const struct {
        const char* superblock;
        const char* kept;
        const char* dropped;
    } rows[] = {{"SPB5", "LEAF", "BtqZ"}, {"SB64", "BtqZ", "LEAF"}};
    for (const auto& row : rows) {
        WriteDevice("sbo5");
        OpenDevice(device_);
        WriteDevice(row.superblock);
        EXPECT_EQ(engine_.ReadPoolBlk(block_, 100), 20100);  // empties the stream's buffer
        EXPECT_EQ(engine_.ValidateSBHSimple(), 0) << row.superblock;
        BlockSelector selector;
        EXPECT_EQ(engine_.ValidateSBHSimple(selector), 0) << row.superblock;
        int off = 0;
        const std::unique_ptr<BS_Key> key(selector.EnumerateOpen(0));
        while (const BlockSelect_s* type = selector.Enumerate(key.get())) {
            off += type->selected == 0 ? 1 : 0;
        }
        EXPECT_EQ(off, 1);
        EXPECT_EQ(selector.IsSelectedBlock(MakeBlock(row.kept).data()), 1);
        EXPECT_EQ(selector.IsSelectedBlock(MakeBlock(row.dropped).data()), 0);
    }
}

TEST_F(Engine, GivesEveryRunAScanIDOfItsOwn) {
    support::WriteFile(device_, MakeBlock("") + MakeBlock("SPB5") + MakeBlock("LEAF"));
    ScanEngine other(true, true);
    ASSERT_EQ(Run(engine_), 0);
    ASSERT_EQ(Run(other), 0);
    const std::string id(support::ScanFileParts(FilePath(engine_, 0)).ScanID());
    const std::string otherID(support::ScanFileParts(FilePath(other, 0)).ScanID());
    EXPECT_NE(id, otherID);
    EXPECT_NE(id, std::string(16, '\0'));
}

TEST_F(Engine, ClosesADeviceLeftOpenWithItsEnd) {
    WriteDevice("sbo5");
    {
        ScanEngine engine(true, true);
        EXPECT_EQ(Run(engine), 1);
        EXPECT_EQ(support::DescriptorsOf(device_).size(), 1U);
    }
    EXPECT_EQ(support::DescriptorsOf(device_).size(), 0U);
}

TEST_F(Engine, ClosesADeviceLeftOpenWithTheNextPass) {
    WriteDevice("sbo5");
    OpenDevice(device_);
    WriteDevice("SPB5");
    EXPECT_EQ(Run(engine_), 0);
    EXPECT_EQ(support::DescriptorsOf(device_).size(), 0U);
}

}  // namespace
