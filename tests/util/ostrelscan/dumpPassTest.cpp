#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/enginePass.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/holedMemory.h"
#include "tests/support/loopDevice.h"
#include "tests/support/openFiles.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/poolTypes.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/writingTest.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeBlock;
using support::MakeRecord;
using support::ScanFileParts;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr int kSystemError = 0x22BA5000;

class DumpPass : public support::EnginePass {
  protected:
    void WriteDevice(const std::vector<std::string>& blocks) {
        support::WriteFile(device_, support::Join(blocks));
    }

    void ExpectStatistics(unsigned long long current, unsigned long long done,
                          unsigned long long readErrors) {
        unsigned long long seen[4] = {};
        engine_.GetStatistics(&seen[0], &seen[1], &seen[2], &seen[3]);
        EXPECT_EQ(seen[0], current);
        EXPECT_EQ(seen[1], done);
        EXPECT_EQ(seen[2], readErrors);
        EXPECT_EQ(seen[3], 0U);
    }

    /// The newest scan file's line of the history.
    std::string LastFile() {
        std::ostringstream line;
        line << engine_.History().ScanFileFactsLast();
        return line.str();
    }

    ScanFileParts Parts(int number, char letter = 'T') {
        return ScanFileParts(FilePath(engine_, number, letter));
    }

    void ExpectFailure(int status, const std::string& message, const std::string& location) {
        EXPECT_EQ(engine_.Result(), status);
        EXPECT_EQ(engine_.ErrorMessage(), message);
        EXPECT_EQ(engine_.ErrorLocation(), location);
    }

    void ExpectIncomplete(int status) {
        ExpectFailure(status, "Could not complete scan of pool - " + std::to_string(status) + "\n",
                      "util/ostrelscan/scanEngine[651]");
    }

    void ExpectDeviceOpen(bool open) {
        EXPECT_EQ(support::DescriptorsOf(device_).size(), open ? 1U : 0U);
    }

    ScanEngine engine_{true, true};
};

TEST_F(DumpPass, SavesTheSelectedBlocksWithTheirNumbersInOrder) {
    WriteDevice({MakeBlock("", 'u'), MakeBlock("SPB5"), MakeBlock("????oVUk"), MakeBlock("LEAF"),
                 MakeBlock("BtqZ"), MakeBlock("DLEF")});
    selector_.SelectOff(0U);
    ASSERT_EQ(Run(engine_, {.end = 5}), 0);
    EXPECT_EQ(Parts(0).Data(),
              MakeRecord(1, MakeBlock("SPB5")) + MakeRecord(2, MakeBlock("????oVUk")) +
                  MakeRecord(3, MakeBlock("LEAF")) + MakeRecord(5, MakeBlock("DLEF")));
    ExpectStatistics(6, 4, 0);
    EXPECT_EQ(Count("BtqZ"), 1U);
    EXPECT_EQ(Count("uuuu"), 1U);
    EXPECT_EQ(engine_.ErrorMessage(), "Scan engine is still running");
}

TEST_F(DumpPass, LogsItsStepsLineByLine) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    ASSERT_EQ(Run(engine_), 0);
    std::vector<std::string> lines = log_.Lines();
    std::erase(lines, "warning: different zlib version");
    EXPECT_THAT(lines,
                testing::ElementsAre("In RunDumpMain(start)", "Blocks in pool is 3",
                                     "util/ostrelscan/scanEngine[470]", "In RunDumpMain(exit)"));
    ExpectDeviceOpen(false);
}

TEST_F(DumpPass, DescribesTheRunInItsFile) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    ASSERT_EQ(Run(engine_, {.poolName = "POOL1"}), 0);
    const ScanFileParts parts = Parts(0);
    EXPECT_EQ(parts.Flags(), 0x202U);
    EXPECT_EQ(parts.PoolBlocks(), 3U);
    EXPECT_EQ(parts.FileNumber(), 0U);
    EXPECT_EQ(parts.CompressionLevel(), 0xFFFFFFFFU);
    EXPECT_EQ(parts.PoolName().substr(0, 12), std::string("P\0O\0O\0L\0001\0\0\0", 12));
    EXPECT_EQ(LastFile(),
              FilePath(engine_, 0) + "\t0\t" + std::to_string(parts.Crc()) + "\t2555\t3");
}

TEST_F(DumpPass, CompressesItsFilesWhenAsked) {
    WriteDevice({MakeBlock(""), MakeBlock("SB64"), MakeBlock("BtqZ")});
    ASSERT_EQ(Run(engine_, {.compress = true}), 0);
    const ScanFileParts parts = Parts(0, 'C');
    EXPECT_EQ(parts.Flags(), 0x243U);
    EXPECT_EQ(parts.InflatedData(), MakeRecord(0, MakeBlock("")) +
                                        MakeRecord(1, MakeBlock("SB64")) +
                                        MakeRecord(2, MakeBlock("BtqZ")));
    EXPECT_EQ(parts.DataBytes(), 660U + 3 * 4104);
}

TEST_F(DumpPass, TakesADeviceOfUnknownSizeForThreeBlocks) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF"), MakeBlock("LEAF")});
    ASSERT_EQ(Run(engine_), 0);
    EXPECT_EQ(engine_.BlocksInPool(), 3U);
    EXPECT_EQ(engine_.LastBlock(), 2U);
    EXPECT_EQ(Count("LEAF"), 1U);
    ExpectStatistics(3, 3, 0);
}

TEST_F(DumpPass, GoesUpToTheDevicesLastBlockWhenTheLastBlockIsZero) {
    std::vector<std::string> blocks(70, MakeBlock("LEAF"));
    blocks[1] = MakeBlock("SPB5");
    WriteDevice(blocks);
    const support::LoopDevice loop(device_);
    if (!loop.Works()) {
        GTEST_SKIP() << "this machine gives no loop device";
    }
    ASSERT_EQ(Run(engine_, {.device = loop.Path()}), 0);
    EXPECT_EQ(engine_.BlocksInPool(), 70U);
    EXPECT_EQ(engine_.LastBlock(), 69U);
    ExpectStatistics(70, 70, 0);
    EXPECT_EQ(Parts(0).PoolBlocks(), 70U);
    EXPECT_EQ(Parts(0).Data().substr(69 * 4104), MakeRecord(69, MakeBlock("LEAF")));
}

TEST_F(DumpPass, SavesTheRangeItWasGiven) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF"), MakeBlock("DirH"),
                 MakeBlock("ELOG")});
    ASSERT_EQ(Run(engine_, {.start = 2, .end = 3}), 0);
    EXPECT_EQ(engine_.FirstBlock(), 2U);
    EXPECT_EQ(engine_.LastBlock(), 3U);
    EXPECT_EQ(Parts(0).Data(), MakeRecord(2, MakeBlock("LEAF")) + MakeRecord(3, MakeBlock("DirH")));
    ExpectStatistics(4, 2, 0);
}

TEST_F(DumpPass, CreatesNoFileWhenTheFirstBlockLiesBeyondTheLast) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    EXPECT_EQ(Run(engine_, {.start = 5, .end = 4}), 0);
    EXPECT_FALSE(std::filesystem::exists(FilePath(engine_, 0)));
    EXPECT_FALSE(engine_.History().ScanFileFactsLast().Valid());
    ExpectStatistics(5, 0, 0);
}

TEST_F(DumpPass, LeavesUnselectedBlocksOutAndGoesOn) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    selector_.SelectAllOff();
    ASSERT_EQ(Run(engine_), 0);
    ExpectStatistics(3, 0, 0);
    EXPECT_EQ(Parts(0).Data(), "");
    EXPECT_EQ(Parts(0).Flags(), 0x202U);
    EXPECT_EQ(Count("LEAF"), 1U);
    EXPECT_EQ(LastFile(), FilePath(engine_, 0) + "\t0\t4294967295\t2555\t0");
}

TEST_F(DumpPass, SwitchesTheOtherFormatsLeafOffOnlyWhenItValidates) {
    WriteDevice({MakeBlock("BtqZ"), MakeBlock("SPB5"), MakeBlock("LEAF")});
    ASSERT_EQ(Run(engine_), 0);
    ExpectStatistics(3, 2, 0);
    BlockSelector fresh;
    ScanEngine unchecked(true, false);
    DumpOptions options = Options({});
    ASSERT_EQ(unchecked.RunDump(fresh, options), 0);
    AwaitEnd(unchecked);
    EXPECT_EQ(ScanFileParts(FilePath(unchecked, 0)).Data().size(), 3U * 4104);
}

/// More blocks than one scan file holds.
class LongDump : public DumpPass {
  protected:
    void WriteLeaves(std::size_t leaves, std::size_t userBlocks) {
        std::string image;
        for (std::size_t i = 0; i < leaves; ++i) {
            image += MakeBlock("LEAF");
        }
        image.append(userBlocks * support::kBlockBytes, '\0');
        support::WriteFile(device_, image);
    }

    ScanEngine engine_{true, false};
};

TEST_F(LongDump, GoesOnInTheNextFileWhenOneIsFull) {
    WriteLeaves(2557, 0);
    ASSERT_EQ(Run(engine_, {.end = 2556}), 0);
    const ScanFileParts first(FilePath(engine_, 0));
    const ScanFileParts second(FilePath(engine_, 1));
    EXPECT_EQ(first.Bytes().size(), 10'486'380U);
    EXPECT_EQ(first.Flags(), 0x200U);
    EXPECT_EQ(second.Flags(), 0x202U);
    EXPECT_EQ(second.FileNumber(), 1U);
    EXPECT_EQ(second.ScanID(), first.ScanID());
    EXPECT_EQ(second.Data(),
              MakeRecord(2555, MakeBlock("LEAF")) + MakeRecord(2556, MakeBlock("LEAF")));
    EXPECT_FALSE(std::filesystem::exists(FilePath(engine_, 2)));
}

TEST_F(LongDump, NeedsNoNextFileWhenTheRangeEndsWithAFullOne) {
    WriteLeaves(2555, 0);
    ASSERT_EQ(Run(engine_, {.end = 2554}), 0);
    EXPECT_EQ(ScanFileParts(FilePath(engine_, 0)).Flags(), 0x202U);
    EXPECT_FALSE(std::filesystem::exists(FilePath(engine_, 1)));
}

TEST_F(LongDump, EndsWithAnEmptyLastFileWhenNothingMoreIsSelected) {
    WriteLeaves(2555, 1);
    selector_.SelectOff(0U);
    ASSERT_EQ(Run(engine_, {.end = 2555}), 0);
    EXPECT_EQ(ScanFileParts(FilePath(engine_, 0)).Flags(), 0x200U);
    const ScanFileParts last(FilePath(engine_, 1));
    EXPECT_EQ(last.Flags(), 0x202U);
    EXPECT_EQ(last.Bytes().size(), 660U);
}

TEST_F(LongDump, SplitsCompressedFilesByTheirUncompressedLength) {
    WriteLeaves(2556, 0);
    ASSERT_EQ(Run(engine_, {.end = 2555, .compress = true}), 0);
    EXPECT_EQ(ScanFileParts(FilePath(engine_, 0, 'C')).InflatedData().size(), 2555U * 4104);
    EXPECT_EQ(ScanFileParts(FilePath(engine_, 1, 'C')).InflatedData(),
              MakeRecord(2555, MakeBlock("LEAF")));
}

TEST_F(DumpPass, LeavesOutTheTailThatIsNoWholeBlock) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF").substr(0, 4095)});
    ASSERT_EQ(Run(engine_), 0);
    ExpectStatistics(3, 2, 1);
    EXPECT_EQ(engine_.ReadErrors().last.status, 20100);
    EXPECT_EQ(engine_.ReadErrors().last.block, 2U);
    EXPECT_EQ(Count("LEAF"), 0U);
    EXPECT_EQ(Parts(0).DataBytes(), 660U + 2 * 4104);
}

TEST_F(DumpPass, SavesEveryReadableBlockAndTracksEachBadOneOnce) {
    constexpr std::size_t kBlocks = 150;
    support::HoledMemory memory(kBlocks);
    std::string expected;
    for (std::size_t i = 0; i < kBlocks; ++i) {
        const std::string block = MakeBlock("LEAF", static_cast<char>(i));
        memory.Put(i, block);
        if (i == 3 || i == 64 || i == 149) {
            memory.MakeBad(i);
        } else {
            expected += MakeRecord(memory.Number(i), block);
        }
    }
    ScanEngine engine(true, false);
    ASSERT_EQ(Run(engine, {.start = memory.Number(0),
                           .end = memory.LastNumber(),
                           .device = support::HoledMemory::kPath}),
              0);
    EXPECT_EQ(engine.ReadErrors().count, 3U);
    EXPECT_EQ(engine.ReadErrors().last.status, kSystemError + EIO);
    EXPECT_EQ(engine.ReadErrors().last.block, memory.LastNumber());
    EXPECT_EQ(ScanFileParts(FilePath(engine, 0)).Data(), expected);
}

TEST_F(DumpPass, NeverEndsForReadErrorsHoweverMany) {
    ScanEngine engine(true, false);
    ASSERT_EQ(Run(engine, {.end = 1099, .device = directory_.Path()}), 0);
    EXPECT_EQ(engine.ReadErrors().count, 1100U);
    EXPECT_EQ(engine.ReadErrors().last.block, 998U);
    EXPECT_EQ(engine.ReadErrors().last.status, kSystemError + EISDIR);
    EXPECT_THAT(log_.Text(), HasSubstr("]  Block - 3e6 Status - 22ba5015\n"));
    EXPECT_EQ(log_.Text().find("]  Block - 3e7 "), std::string::npos);
}

TEST_F(DumpPass, TracksABlockThatCannotBeSought) {
    ASSERT_EQ(mkfifo(device_.c_str(), 0600), 0);
    const int feeder = open(device_.c_str(), O_RDWR | O_CLOEXEC);
    ScanEngine engine(true, false);
    EXPECT_EQ(Run(engine, {.start = 1, .end = 2}), 0);
    close(feeder);
    EXPECT_EQ(engine.ReadErrors().count, 2U);
    EXPECT_EQ(engine.ReadErrors().last.status, kSystemError + ESPIPE);
}

TEST_F(DumpPass, FailsWhenTheDeviceCannotBeOpened) {
    Run(engine_);
    const std::string message =
        "Unable to open device \"" + device_ + "\" for read access - No such file or directory\n";
    ExpectFailure(1, message, "util/ostrelscan/scanEngine[440]");
    EXPECT_EQ(log_.Text(), "In RunDumpMain(start)\n" + message);
    EXPECT_EQ(engine_.BlocksInPool(), 0U);
}

TEST_F(DumpPass, FailsWhenTheSuperblockDoesNotValidateAndLeavesTheDeviceOpen) {
    WriteDevice({MakeBlock(""), MakeBlock("sbo5"), MakeBlock("LEAF")});
    Run(engine_);
    const std::string message =
        "OSTREL Pool superblock header validation error:  Pool's superblock did not validate "
        "(ensure that the correct device was given)\n";
    ExpectFailure(1, message, "util/ostrelscan/scanEngine[524]");
    EXPECT_EQ(log_.Text(),
              "In RunDumpMain(start)\nBlocks in pool is 3\nutil/ostrelscan/scanEngine[470]\n" +
                  message + "util/ostrelscan/scanEngine[505]\n");
    ExpectDeviceOpen(true);
    EXPECT_FALSE(std::filesystem::exists(FilePath(engine_, 0)));
}

TEST_F(DumpPass, SkipsTheValidationWhenAsked) {
    WriteDevice({MakeBlock(""), MakeBlock("sbo5"), MakeBlock("LEAF")});
    ScanEngine engine(true, false);
    EXPECT_EQ(Run(engine), 0);
    EXPECT_EQ(ScanFileParts(FilePath(engine, 0)).Data().size(), 3U * 4104);
}

TEST_F(DumpPass, FailsWhenTheWriterCannotBeMadeAndClosesTheDevice) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    Run(engine_, {.poolName = std::string(64, 'P')});
    const std::string message =
        "Exception while attempting to create a ZSBFile Object:  Poolname is too long\n";
    ExpectFailure(1, message, "util/ostrelscan/scanEngine[557]");
    EXPECT_THAT(log_.Text(), EndsWith("util/ostrelscan/scanEngine[470]\n" + message));
    ExpectDeviceOpen(false);
}

TEST_F(DumpPass, FailsForAPathOf512Characters) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    Run(engine_, {.path = std::string(512, '/')});
    ExpectFailure(1,
                  "Exception while attempting to create a ZSBFile Object:  "
                  "strlen( zsbFilePath ) >= sizeof( ZF_Path )\n",
                  "util/ostrelscan/scanEngine[557]");
}

TEST_F(DumpPass, FailsWhenAFileCannotBeCreatedAndListsIt) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    Run(engine_, {.path = directory_.File("nowhere/")});
    ExpectIncomplete(kSystemError + ENOENT);
    EXPECT_EQ(LastFile().substr(LastFile().find('\t')),
              "\t" + std::to_string(kSystemError + ENOENT) + "\t18446744073709551615\t0\t0");
    EXPECT_THAT(log_.Text(), EndsWith("In RunDumpMain(exit)\n"));
    ExpectDeviceOpen(false);
}

TEST_F(DumpPass, FailsWhenTheDirectoryIsAFile) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    Run(engine_, {.path = device_ + "/"});
    ExpectIncomplete(kSystemError + ENOTDIR);
}

TEST_F(DumpPass, FailsOnAFullDiskAndListsTheFileWithItsStatus) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    std::filesystem::create_symlink("/dev/full", FilePath(engine_, 0));
    Run(engine_);
    ExpectIncomplete(kSystemError + ENOSPC);
    // The header could not be written either, so the CRC stays unknown.
    EXPECT_EQ(LastFile(), FilePath(engine_, 0) + "\t" + std::to_string(kSystemError + ENOSPC) +
                              "\t18446744073709551615\t2555\t0");
    ExpectStatistics(0, 0, 0);
    EXPECT_THAT(log_.Text(), EndsWith("In RunDumpMain(exit)\n"));
    ExpectDeviceOpen(false);
}

TEST_F(DumpPass, KeepsWhatWasSavedBeforeTheDiskWasFull) {
    WriteDevice({MakeBlock("ADGD"), MakeBlock("SPB5"), MakeBlock("LEAF")});
    {
        const support::FileSizeLimit limit(660 + 4104);
        Run(engine_);
    }
    ExpectIncomplete(kSystemError + EFBIG);
    const ScanFileParts parts = Parts(0);
    EXPECT_EQ(parts.Flags(), 0x280U);
    EXPECT_EQ(parts.Data(), MakeRecord(0, MakeBlock("ADGD")));
    EXPECT_EQ(parts.DataBytes(), 660U + 4104);
    EXPECT_EQ(LastFile(), FilePath(engine_, 0) + "\t" + std::to_string(kSystemError + EFBIG) +
                              "\t" + std::to_string(parts.Crc()) + "\t2555\t1");
    ExpectStatistics(1, 1, 0);
}

TEST_F(DumpPass, FailsWhenCompressedBytesDoNotFit) {
    WriteDevice({MakeBlock("ADGD"), MakeBlock("SPB5"), MakeBlock("LEAF")});
    {
        const support::FileSizeLimit limit(660);
        Run(engine_, {.compress = true});
    }
    ExpectIncomplete(-2);
    EXPECT_EQ(Parts(0, 'C').Flags(), 0x2C3U);
}

TEST_F(DumpPass, EndsWithTheStatusOfAnOperatorsStopAndClearsTheRequest) {
    WriteDevice({MakeBlock(""), MakeBlock("SPB5"), MakeBlock("LEAF")});
    engine_.RequestStop();
    Run(engine_);
    ExpectIncomplete(20017);
    EXPECT_EQ(Parts(0).Flags(), 0x208U);
    EXPECT_EQ(Parts(0).DataBytes(), 660U);
    EXPECT_EQ(LastFile(), FilePath(engine_, 0) + "\t20017\t4294967295\t2555\t0");
    ExpectStatistics(0, 0, 0);
    ExpectDeviceOpen(false);
    EXPECT_EQ(Run(engine_), 0);
    EXPECT_EQ(Parts(0).Flags(), 0x202U);
}

TEST_F(DumpPass, StopsBetweenTwoBlocks) {
    ASSERT_EQ(mkfifo(device_.c_str(), 0600), 0);
    const int feeder = open(device_.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(feeder, 0);
    const auto feed = [feeder](const std::string& block) {
        EXPECT_EQ(write(feeder, block.data(), block.size()), 4096);
    };
    ScanEngine engine(true, false);
    DumpOptions options = Options({.end = 9});
    ASSERT_EQ(engine.RunDump(selector_, options), 0);
    feed(MakeBlock("LEAF"));
    unsigned long long current = 0;
    unsigned long long done = 0;
    while (current == 0) {
        engine.GetStatistics(&current, &done, nullptr, nullptr);
        Ostrel::LB_delay(1);
    }
    engine.RequestStop();
    feed(MakeBlock("DirH"));
    AwaitEnd(engine);
    close(feeder);
    EXPECT_EQ(engine.Result(), 20017);
    engine.GetStatistics(&current, &done, nullptr, nullptr);
    EXPECT_EQ(current, 1U);
    EXPECT_EQ(done, 1U);
    EXPECT_EQ(Count("DirH"), 1U);
    const ScanFileParts parts(FilePath(engine, 0));
    EXPECT_EQ(parts.Data(), MakeRecord(0, MakeBlock("LEAF")));
    EXPECT_EQ(parts.Flags(), 0x208U);
}

TEST_F(DumpPass, SavesEveryTypeOfBlock) {
    std::string image;
    for (const support::PoolType& type : support::kPoolTypes) {
        image += MakeBlock(type.name == "KUVO(New)" ? "????oVUk" : std::string(type.magic));
    }
    support::WriteFile(device_, image);
    ScanEngine engine(true, false);
    ASSERT_EQ(Run(engine, {.end = 40}), 0);
    const std::unique_ptr<BS_Key> key(selector_.EnumerateOpen(0));
    while (const BlockSelect_s* type = selector_.Enumerate(key.get())) {
        EXPECT_EQ(type->count, 1U) << type->name;
    }
    EXPECT_EQ(ScanFileParts(FilePath(engine, 0)).DataBytes(), 660U + 41 * 4104);
}

TEST_F(DumpPass, FillsOneFileUnderTheOlderNameToo) {
    WriteDevice({MakeBlock(""), MakeBlock("sbo5"), MakeBlock("LEAF")});
    Run(engine_);
    const auto file = support::MakeWriter(directory_.Path(), {.setNumber = 98});
    ASSERT_EQ(file->CreateNext(true), 0);
    // The range of a pass that did not begin is block 0 alone.
    EXPECT_EQ(engine_.RunDumpFillSingleZSBFile(*file), 0);
    ASSERT_EQ(file->CreateClose(true, false, false, false, nullptr), 0);
    EXPECT_EQ(ScanFileParts(directory_.File("T9800000.ZSB")).Data(), MakeRecord(0, MakeBlock("")));
}

}  // namespace
