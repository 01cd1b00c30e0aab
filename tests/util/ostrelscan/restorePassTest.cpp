#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/openFiles.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/clock.h"
#include "util/common/fileDescriptor.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr std::size_t kBlockBytes = 4096;
constexpr int kInvalidState = 20010;
constexpr int kStopped = 20017;
constexpr int kEndOfFile = 20100;
constexpr int kSkipped = 20424;
constexpr int kNotFound = 20444;
constexpr int kMismatch = 24865;
constexpr int kNoSpace = 0x22BA5000 + 28;
constexpr int kIllegalSeek = 0x22BA5000 + 29;
constexpr int kInvalidSeek = 0x22BA5000 + 22;
constexpr int kShortRead = 0x22BA5000;

/// Restores a set onto a file that stands in for the device; opening it as one empties it.
class RestorePass : public testing::Test {
  protected:
    RestorePass() { support::WriteFile(device_, "what stood there before"); }

    void WriteScanFile(int number, const ScanFileImage& image, char letter = 'T') const {
        char name[32] = "";
        std::snprintf(name, sizeof name, "%c00%05d.ZRB", letter, number);
        image.Write(directory_.File(name));
    }

    /// Several raw files, the last of them marked so.
    void WriteSet(const std::vector<std::vector<TestRecord>>& files) const {
        for (std::size_t i = 0; i < files.size(); ++i) {
            WriteScanFile(static_cast<int>(i),
                          ScanFileImage::Raw(files[i], i + 1 == files.size() ? 0x002 : 0));
        }
    }

    static void AwaitEnd(const ScanEngine& engine) {
        while (!engine.Finished()) {
            Ostrel::LB_delay(1);
        }
    }

    int Restore(ScanEngine& engine) {
        EXPECT_EQ(engine.RunRestore(selector_, Options()), 0);
        AwaitEnd(engine);
        return engine.Result();
    }

    RestoreOptions& Options() {
        options_ = RestoreOptions(device_.c_str(), pool_.c_str(), path_.c_str());
        return options_;
    }

    std::string Block(std::size_t number) const {
        const std::string image = support::ReadFile(device_);
        return image.size() > number * kBlockBytes ? image.substr(number * kBlockBytes, kBlockBytes)
                                                   : "";
    }

    void ExpectOnDevice(const TestRecord& record) const {
        EXPECT_EQ(Block(record.number), record.block) << record.number;
    }

    void ExpectFailure(int status, const std::string& message, const std::string& location) {
        EXPECT_EQ(engine_.Result(), status);
        EXPECT_EQ(engine_.ErrorMessage(), message);
        EXPECT_EQ(engine_.ErrorLocation(), location);
    }

    void ExpectIncomplete(int status) {
        ExpectFailure(status, "Could not restore complete pool - " + std::to_string(status) + "\n",
                      "util/ostrelscan/scanEngine[873]");
    }

    /// Each file of the history as "name status total current", oldest first.
    std::vector<std::string> History() {
        std::vector<std::string> lines;
        SFL_Key* key = engine_.History().EnumerateOpen(0);
        for (const ScanFileFacts* facts = &engine_.History().Enumerate(key); facts->Valid();
             facts = &engine_.History().Enumerate(key)) {
            std::ostringstream line;
            line << std::filesystem::path(facts->name).filename().string() << ' ' << facts->status
                 << ' ' << facts->blocksTotal << ' ' << facts->blocksCurrent;
            lines.insert(lines.begin(), line.str());
        }
        engine_.History().EnumerateClose(key);
        return lines;
    }

    std::uint64_t Count(std::string_view magic) {
        return selector_.BlockSelectGet(MakeTestRecord(0, magic).block.c_str())->count;
    }

    support::TemporaryDirectory directory_;
    std::string device_ = directory_.File("device");
    std::string pool_ = "DATA";
    std::string path_ = directory_.Path();
    RestoreOptions options_{nullptr, nullptr, nullptr};
    support::CapturedLog log_;
    BlockSelector selector_;
    ScanEngine engine_{true, false};
    const std::vector<TestRecord> records_{MakeTestRecord(0), MakeTestRecord(1, "SPB5"),
                                           MakeTestRecord(9, "BRCH")};
};

TEST_F(RestorePass, WritesEachRecordWhereItsNumberSays) {
    WriteSet({{records_[2], records_[0], records_[1]}});
    EXPECT_EQ(Restore(engine_), 0);
    for (const TestRecord& record : records_) {
        ExpectOnDevice(record);
    }
    EXPECT_EQ(std::filesystem::file_size(device_), 10 * kBlockBytes);
    EXPECT_EQ(Block(5), std::string(kBlockBytes, '\0'));
    EXPECT_TRUE(support::DescriptorsOf(device_).empty());
}

TEST_F(RestorePass, RestoresACompressedSet) {
    WriteScanFile(0, ScanFileImage::Compressed(records_), 'C');
    EXPECT_EQ(Restore(engine_), 0);
    for (const TestRecord& record : records_) {
        ExpectOnDevice(record);
    }
}

TEST_F(RestorePass, TheLaterRecordOfABlockStands) {
    TestRecord later = records_[0];
    later.block.back() = '!';
    WriteSet({{records_[0], later}});
    EXPECT_EQ(Restore(engine_), 0);
    ExpectOnDevice(later);
}

TEST_F(RestorePass, LogsItsWay) {
    WriteSet({{records_[0]}, {records_[1]}});
    EXPECT_EQ(Restore(engine_), 0);
    EXPECT_EQ(log_.Text(),
              "In RunRestoreMain(start)\n"
              "util/ostrelscan/scanEngine[738]\n"
              "warning: different zlib version\n"
              "util/ostrelscan/scanEngine[1041]ZRB EOF found\n"
              "util/ostrelscan/scanEngine[1041]ZRB EOF found\n"
              "In RunRestoreMain(exit)\n");
}

TEST_F(RestorePass, GoesOnWithTheNextFileBehindTheLastRecord) {
    WriteSet({{records_[0]}, {}, {records_[1], records_[2]}});
    EXPECT_EQ(Restore(engine_), 0);
    for (const TestRecord& record : records_) {
        ExpectOnDevice(record);
    }
    EXPECT_THAT(History(),
                ElementsAre("T0000000.ZRB 0 1 1", "T0000001.ZRB 0 0 0", "T0000002.ZRB 0 2 2"));
}

TEST_F(RestorePass, EndsWithTheFileThatSaysItIsTheLast) {
    WriteSet({{records_[0]}, {records_[1]}});
    WriteScanFile(0, ScanFileImage::Raw({records_[0]}, 0x002));
    EXPECT_EQ(Restore(engine_), 0);
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 0 1 1"));
    EXPECT_EQ(Block(1), "");
}

TEST_F(RestorePass, ASetThatNoFileEndsIsIncomplete) {
    WriteScanFile(0, ScanFileImage::Raw({records_[0]}, 0));
    WriteScanFile(1, ScanFileImage::Raw({records_[1]}, 0));
    EXPECT_EQ(Restore(engine_), kNotFound);
    ExpectIncomplete(kNotFound);
    ExpectOnDevice(records_[1]);
    EXPECT_THAT(History(),
                ElementsAre("T0000000.ZRB 0 1 1", "T0000001.ZRB 0 1 1", "T0000002.ZRB 20444 0 0"));
    EXPECT_THAT(log_.Text(), EndsWith("In RunRestoreMain(exit)\n"));
}

TEST_F(RestorePass, WithoutAnyFileNothingIsWritten) {
    EXPECT_EQ(Restore(engine_), kNotFound);
    ExpectIncomplete(kNotFound);
    EXPECT_THAT(History(), ElementsAre("C0000000.ZRB 20444 0 0"));
}

TEST_F(RestorePass, RecordsOfUnselectedTypesAreReadAndCountedButNotWritten) {
    selector_.SelectOff(0U);
    selector_.SelectOff(0x4D534150U);
    WriteSet({{MakeTestRecord(0, "none"), MakeTestRecord(1, "PASM"), MakeTestRecord(2)}});
    EXPECT_EQ(Restore(engine_), 0);
    EXPECT_EQ(Block(0), std::string(kBlockBytes, '\0'));
    EXPECT_EQ(Block(1), std::string(kBlockBytes, '\0'));
    ExpectOnDevice(MakeTestRecord(2));
    EXPECT_EQ(Count("none"), 1U);
    EXPECT_EQ(Count("PASM"), 1U);
    EXPECT_EQ(Count("LEAF"), 1U);
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 0 3 3"));
}

TEST_F(RestorePass, LeavesTheEnginesOwnCountersAlone) {
    WriteSet({records_});
    EXPECT_EQ(Restore(engine_), 0);
    unsigned long long current = 99;
    unsigned long long done = 99;
    EXPECT_EQ(engine_.GetStatistics(&current, &done, nullptr, nullptr), 0);
    EXPECT_EQ(current, 0U);
    EXPECT_EQ(done, 0U);
}

TEST_F(RestorePass, DoesNotMakeAFileOfADeviceThatIsNotThere) {
    device_ = directory_.File("no-device");
    EXPECT_EQ(Restore(engine_), 1);
    const std::string message =
        "Unable to open device \"" + device_ + "\" for write access - No such file or directory\n";
    ExpectFailure(1, message, "util/ostrelscan/scanEngine[728]");
    EXPECT_EQ(log_.Text(), "In RunRestoreMain(start)\n" + message);
    EXPECT_FALSE(std::filesystem::exists(device_));
}

TEST_F(RestorePass, TellsWhyADeviceCannotBeWritten) {
    device_ = directory_.Path();
    EXPECT_EQ(Restore(engine_), 1);
    ExpectFailure(1,
                  "Unable to open device \"" + device_ + "\" for write access - Is a directory\n",
                  "util/ostrelscan/scanEngine[728]");
}

TEST_F(RestorePass, TellsADeviceWithoutASuperblock) {
    ScanEngine engine(true, true);
    EXPECT_EQ(Restore(engine), 1);
    const std::string message =
        "OSTREL Pool superblock header validation error:  Pool's superblock did not validate "
        "(ensure that the correct device was given)\n";
    EXPECT_EQ(engine.ErrorMessage(), message);
    EXPECT_EQ(engine.ErrorLocation(), "util/ostrelscan/scanEngine[793]");
    EXPECT_EQ(log_.Text(),
              "In RunRestoreMain(start)\n"
              "util/ostrelscan/scanEngine[738]\n"
              "Validation status - 20100\n" +
                  message + "util/ostrelscan/scanEngine[774]\n");
}

TEST_F(RestorePass, TellsAPoolThatCannotBeHeld) {
    ScanEngine engine(false, false);
    EXPECT_EQ(Restore(engine), 1);
    EXPECT_THAT(engine.ErrorMessage(), testing::StartsWith("Pool state issue:  "));
    EXPECT_EQ(engine.ErrorLocation(), "util/ostrelscan/scanEngine[793]");
    EXPECT_THAT(log_.Text(), EndsWith("util/ostrelscan/scanEngine[774]\n"));
}

TEST_F(RestorePass, TellsAReaderThatCannotBeMade) {
    pool_ = std::string(64, 'P');
    WriteSet({records_});
    EXPECT_EQ(Restore(engine_), 1);
    ExpectFailure(1,
                  "Exception while attempting to create a ZSBFile Object:  Poolname is too long\n",
                  "util/ostrelscan/scanEngine[811]");
    EXPECT_THAT(log_.Text(), EndsWith(engine_.ErrorMessage()));
    path_ = std::string(512, '/');
    pool_ = "DATA";
    EXPECT_EQ(Restore(engine_), 1);
    ExpectFailure(1,
                  "Exception while attempting to create a ZSBFile Object:  strlen( zsbFilePath ) "
                  ">= sizeof( ZF_Path )\n",
                  "util/ostrelscan/scanEngine[811]");
}

TEST_F(RestorePass, TheFirstFailedWriteEndsItAndTheDeviceIsStillStored) {
    device_ = "/dev/full";
    WriteSet({{MakeTestRecord(18), MakeTestRecord(19)}, {MakeTestRecord(20)}});
    EXPECT_EQ(Restore(engine_), kNoSpace);
    ExpectIncomplete(kNoSpace);
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 582635548 2 1"));
    EXPECT_EQ(engine_.WriteErrors().count, 1U);
    EXPECT_EQ(engine_.WriteErrors().last.line, 1454U);
    EXPECT_EQ(engine_.WriteErrors().last.block, 18U);
    EXPECT_THAT(
        log_.Text(),
        EndsWith("util/ostrelscan/scanEngine[1452] Write error to device during restore1c\n"
                 "util/ostrelscan/scanEngine[1453]  Write was to block - 12\n"
                 "TrackWriteErrorStats\n"
                 "  Write error recorded from util/ostrelscan/scanEngine[1454]  Block - 12 "
                 "Status - 22ba501c\n"
                 "util/ostrelscan/scanEngine[1058] Write error to device during restore582635548\n"
                 "Unable to sync data to device - 22\n"
                 "In RunRestoreMain(exit)\n"));
}

TEST_F(RestorePass, AFailedSyncIsTheErrorNumberAsItIs) {
    device_ = "/dev/null";
    WriteSet({records_});
    EXPECT_EQ(Restore(engine_), 22);
    ExpectIncomplete(22);
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 0 3 3"));
    EXPECT_THAT(log_.Text(), EndsWith("ZRB EOF found\n"
                                      "Unable to sync data to device - 22\n"
                                      "In RunRestoreMain(exit)\n"));
}

class RestorePassOntoAPipe : public RestorePass {
  protected:
    RestorePassOntoAPipe() {
        device_ = directory_.File("pipe");
        EXPECT_EQ(mkfifo(device_.c_str(), 0600), 0);
    }
};

TEST_F(RestorePassOntoAPipe, AFailedSeekEndsItToo) {
    WriteSet({{MakeTestRecord(0x1F)}});
    EXPECT_EQ(Restore(engine_), kIllegalSeek);
    ExpectIncomplete(kIllegalSeek);
    EXPECT_THAT(
        log_.Text(),
        HasSubstr("util/ostrelscan/scanEngine[1438] Seek error on device during restore - 1d\n"
                  "util/ostrelscan/scanEngine[1439]  Seek was to block - 1f\n"
                  "TrackWriteErrorStats\n"
                  "  Write error recorded from util/ostrelscan/scanEngine[1441]  Block - 1f "
                  "Status - 22ba501d\n"
                  "util/ostrelscan/scanEngine[1058] Write error to device during "
                  "restore582635549\n"));
}

TEST_F(RestorePassOntoAPipe, ASecondRestoreIsRefusedWhileOneRuns) {
    std::vector<TestRecord> many;
    for (std::uint64_t number = 0; number < 64; ++number) {
        many.push_back(MakeTestRecord(number));
    }
    WriteSet({many});
    const FileDescriptor pipe(open(device_.c_str(), O_RDWR | O_CLOEXEC));
    RestoreOptions& options = Options();
    ASSERT_EQ(engine_.RunRestore(selector_, options), 0);
    EXPECT_EQ(engine_.RunRestore(selector_, options), kInvalidState);
    std::string written(many.size() * kBlockBytes, '\0');
    for (std::size_t count = 0; count < written.size();) {
        const ssize_t more = read(pipe.Get(), written.data() + count, written.size() - count);
        ASSERT_GT(more, 0);
        count += static_cast<std::size_t>(more);
    }
    AwaitEnd(engine_);
    for (const TestRecord& record : many) {
        EXPECT_EQ(written.substr(record.number * kBlockBytes, kBlockBytes), record.block);
    }
    EXPECT_EQ(History().size(), 1U);
}

TEST_F(RestorePass, ABlockNumberThatNoDeviceHasIsNeverWrittenElsewhere) {
    for (const std::uint64_t number :
         {std::uint64_t{1} << 51, (std::uint64_t{1} << 52) + 3, ~std::uint64_t{0}}) {
        WriteSet({{MakeTestRecord(number)}});
        EXPECT_EQ(Restore(engine_), kInvalidSeek) << number;
        EXPECT_EQ(std::filesystem::file_size(device_), 0U);
        EXPECT_EQ(engine_.WriteErrors().last.block, number);
        EXPECT_EQ(engine_.WriteErrors().last.line, 1441U);
    }
}

TEST_F(RestorePass, ADamagedFileEndsItBehindWhatCouldBeRead) {
    WriteSet({records_, {MakeTestRecord(20)}});
    const ScanFileImage whole = ScanFileImage::Raw(records_, 0);
    WriteScanFile(0, ScanFileImage(whole).ShrinkSize(whole.Size() - 1));
    EXPECT_EQ(Restore(engine_), kShortRead);
    ExpectIncomplete(kShortRead);
    ExpectOnDevice(records_[1]);
    EXPECT_EQ(Block(9), "");
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 582635520 3 2"));
    EXPECT_EQ(engine_.WriteErrors().count, 0U);
}

TEST_F(RestorePass, AStopEndsItBehindTheFile) {
    WriteSet({{records_[0]}, {records_[1]}});
    engine_.RequestStop();
    EXPECT_EQ(Restore(engine_), kStopped);
    ExpectIncomplete(kStopped);
    ExpectOnDevice(records_[0]);
    EXPECT_THAT(History(), ElementsAre("T0000000.ZRB 20017 1 1"));
    EXPECT_EQ(Restore(engine_), 0) << "the stop has been answered";
    ExpectOnDevice(records_[1]);
}

TEST_F(RestorePass, AStopIsToldBeforeWhatWentWrongInTheFile) {
    device_ = "/dev/full";
    WriteSet({{MakeTestRecord(18)}});
    engine_.RequestStop();
    EXPECT_EQ(Restore(engine_), kStopped);
}

TEST_F(RestorePass, BothLettersThereTheRawSetIsRestored) {
    WriteScanFile(0, ScanFileImage::Raw({records_[0]}));
    WriteScanFile(0, ScanFileImage::Compressed({records_[2]}), 'C');
    EXPECT_EQ(Restore(engine_), 0);
    EXPECT_EQ(std::filesystem::file_size(device_), kBlockBytes);
}

/// A device as a refused restore leaves it: open, and then filled by somebody else.
class OpenDevice : public RestorePass {
  protected:
    OpenDevice() {
        EXPECT_EQ(Restore(opened_), 1);
        support::WriteFile(device_, records_[0].block + records_[1].block +
                                        MakeTestRecord(2, "BRCH").block + "short");
        marked_ = log_.Text().size();
    }

    std::string NewLog() const { return log_.Text().substr(marked_); }

    ScanEngine opened_{true, true};
    std::size_t marked_ = 0;
};

TEST_F(OpenDevice, WritesASingleBlock) {
    const TestRecord record = MakeTestRecord(5);
    EXPECT_EQ(opened_.WritePoolBlk(record.block.c_str(), 5), 0);
    ExpectOnDevice(record);
    EXPECT_EQ(NewLog(), "");
}

TEST_F(OpenDevice, ReadsWhatItHasJustWritten) {
    const TestRecord record = MakeTestRecord(2, "ELOG");
    char block[kBlockBytes];
    ASSERT_EQ(opened_.ReadPoolBlk(block, 1), 0);
    ASSERT_EQ(opened_.WritePoolBlk(record.block.c_str(), 2), 0);
    ASSERT_EQ(opened_.ReadPoolBlk(block, 2), 0);
    EXPECT_EQ(std::string_view(block, kBlockBytes), record.block);
}

TEST_F(OpenDevice, ComparesAnEqualBlockSilently) {
    EXPECT_EQ(opened_.ComparePoolBlk(MakeTestRecord(2, "BRCH").block.c_str(), 2), 0);
    EXPECT_EQ(NewLog(), "");
    EXPECT_EQ(Count("BRCH"), 1U);
}

TEST_F(OpenDevice, TracksABlockThatDiffersAndReportsNoFailure) {
    EXPECT_EQ(opened_.ComparePoolBlk(records_[0].block.c_str(), 2), 0);
    EXPECT_EQ(NewLog(),
              "Block mismatch at 2\n"
              "TrackReadErrorStats\n"
              "  Read error recorded from util/ostrelscan/scanEngine[1507]  Block - 2 Status - "
              "6121\n");
    EXPECT_EQ(opened_.ReadErrors().last.status, kMismatch);
}

TEST_F(OpenDevice, DumpsTheFirstTwoBlocksWhenTheyAreEqual) {
    for (const std::size_t number : {0, 1}) {
        marked_ = log_.Text().size();
        EXPECT_EQ(opened_.ComparePoolBlk(records_[number].block.c_str(), number), 0);
        const std::string log = NewLog();
        EXPECT_THAT(log, testing::StartsWith("Block0 Block0 Actual block is " +
                                             std::to_string(number) + "\n"));
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1 + 4096 / 16);
    }
}

TEST_F(OpenDevice, DumpsNothingOfAFirstBlockThatDiffers) {
    EXPECT_EQ(opened_.ComparePoolBlk(records_[0].block.c_str(), 1), 0);
    EXPECT_THAT(NewLog(), testing::StartsWith("Block mismatch at 1\nTrackReadErrorStats\n"));
    EXPECT_EQ(NewLog().find("Block0"), std::string::npos);
}

TEST_F(OpenDevice, ComparesNeitherWhatItCannotReadNorWhatIsNotSelected) {
    EXPECT_EQ(opened_.ComparePoolBlk(records_[0].block.c_str(), 3), kSkipped);
    EXPECT_EQ(opened_.ReadErrors().last.status, kEndOfFile);
    selector_.SelectOff(selector_.BlockSelectGet(MakeTestRecord(2, "BRCH").block.c_str()));
    EXPECT_EQ(opened_.ComparePoolBlk(records_[0].block.c_str(), 2), kSkipped);
}

TEST_F(OpenDevice, CountsTheThousandthWriteErrorWithoutDetail) {
    for (unsigned number = 1; number <= 1001; ++number) {
        opened_.TrackWriteErrorStats("util/ostrelscan/scanEngine", number, 5, number);
    }
    EXPECT_EQ(opened_.WriteErrors().count, 1001U);
    EXPECT_EQ(opened_.WriteErrors().last.line, 999U);
    EXPECT_THAT(NewLog(), EndsWith("  Write error recorded from util/ostrelscan/scanEngine[999]  "
                                   "Block - 3e7 Status - 5\n"
                                   "TrackWriteErrorStats\nTrackWriteErrorStats\n"));
}

}  // namespace
