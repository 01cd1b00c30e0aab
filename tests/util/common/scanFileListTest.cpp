#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/writingTest.h"
#include "util/common/scanFileList.h"
#include "util/common/zsbFile.h"

namespace {

constexpr std::uint64_t kAllOnes = 0xFFFFFFFFFFFFFFFF;

std::string TextOf(const ScanFileFacts& facts) {
    std::ostringstream stream;
    stream << std::hex << facts;
    return stream.str();
}

class History : public testing::Test {
  protected:
    /// Creates the next file and enters it; its path.
    std::string Create() {
        const int status = writer_.CreateNext(true);
        list_.LogTrackCreate(writer_, status);
        std::string name;
        writer_.CurrentFullName(name);
        writer_.CreateClose(false, false, false, false, nullptr);
        return name;
    }

    std::vector<std::string> Walk() {
        std::vector<std::string> names;
        SFL_Key* key = list_.EnumerateOpen(0);
        for (;;) {
            const ScanFileFacts& facts = list_.Enumerate(key);
            if (!facts.Valid()) {
                break;
            }
            names.push_back(facts.name);
        }
        EXPECT_EQ(&list_.Enumerate(key), &SFF_Unreferenced);
        list_.EnumerateClose(key);
        return names;
    }

    support::TemporaryDirectory directory_;
    support::CapturedLog log_;
    const std::unique_ptr<ZSBFile> file_ = support::MakeWriter(directory_.Path());
    ZSBFile& writer_ = *file_;
    ScanFileList list_;
};

/// Begins and ends with the shared entry in its first state.
class EmptyHistory : public History {
  protected:
    void SetUp() override { Restore(); }
    void TearDown() override { Restore(); }

  private:
    static void Restore() {
        SFF_Unreferenced.status = -1;
        SFF_Unreferenced.crc = kAllOnes;
        SFF_Unreferenced.blocksTotal = 0;
        SFF_Unreferenced.blocksCurrent = 0;
    }
};

TEST(UnreferencedFactsDeathTest, AreThoseOfNoFileWhenTheProcessBegins) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::cerr << TextOf(SFF_Unreferenced);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "^Unreferenced\t-1\t18446744073709551615\t0\t0$");
}

TEST_F(EmptyHistory, AnswersWithTheEntryThatStandsForNone) {
    EXPECT_EQ(&list_.ScanFileFactsLast(), &SFF_Unreferenced);
    EXPECT_FALSE(list_.ScanFileFactsLast().Valid());
}

TEST_F(EmptyHistory, EnumeratesToTheEntryThatStandsForNoneAtOnce) {
    EXPECT_EQ(Walk(), std::vector<std::string>());
}

TEST_F(EmptyHistory, ChangesTheEntryThatStandsForNone) {
    list_.LogTrackUpdate(20017, 5UL);
    list_.LogTrackUpdateBlockCounts(2, 9);
    EXPECT_EQ(TextOf(SFF_Unreferenced), "Unreferenced\t20017\t5\t9\t2");
    EXPECT_FALSE(list_.ScanFileFactsLast().Valid());
    EXPECT_EQ(Walk(), std::vector<std::string>());
}

TEST_F(History, IsValidByIdentityAndNotByContent) {
    const ScanFileFacts alike("Unreferenced", -1);
    EXPECT_TRUE(alike.Valid());
}

TEST_F(History, EntersACreatedFileAsBeingWritten) {
    const std::string name = Create();
    EXPECT_EQ(name, directory_.File("T0000000.ZSB"));
    EXPECT_EQ(TextOf(list_.ScanFileFactsLast()), name + "\t28001\t18446744073709551615\t0\t0");
}

TEST_F(History, ListsAFileWhoseCreationFailed) {
    std::filesystem::create_directory(directory_.File("T0000000.ZSB"));
    const std::string name = Create();
    EXPECT_EQ(TextOf(list_.ScanFileFactsLast()),
              name + "\t" + std::to_string(0x22BA5000 + 21) + "\t18446744073709551615\t0\t0");
}

TEST_F(History, ListsAFileThatCouldNotBeNamed) {
    const auto unnameable = support::MakeWriter("./", {.setNumber = 100});
    list_.LogTrackCreate(*unnameable, unnameable->CreateNext(true));
    EXPECT_EQ(TextOf(list_.ScanFileFactsLast()), "\t20008\t18446744073709551615\t0\t0");
}

TEST_F(History, EntersAnOpenedFileWithItsStatusAsGiven) {
    ASSERT_EQ(writer_.CreateNext(true), 0);
    list_.LogTrackOpen(writer_, 0);
    EXPECT_EQ(list_.ScanFileFactsLast().status, 0);
    list_.LogTrackOpen(writer_, 20012);
    EXPECT_EQ(TextOf(list_.ScanFileFactsLast()),
              directory_.File("T0000000.ZSB") + "\t20012\t18446744073709551615\t0\t0");
}

TEST_F(History, UpdatesTheNewestEntryAlone) {
    Create();
    const ScanFileFacts& first = list_.ScanFileFactsLast();
    const std::string before = TextOf(first);
    const std::string name = Create();
    const ScanFileFacts& newest = list_.ScanFileFactsLast();
    list_.LogTrackUpdate(0xCBF43926UL);
    EXPECT_EQ(TextOf(newest), name + "\t28001\t3421780262\t0\t0");
    list_.LogTrackUpdate(20826);
    EXPECT_EQ(TextOf(newest), name + "\t20826\t3421780262\t0\t0");
    list_.LogTrackUpdate(-2, 7UL);
    EXPECT_EQ(TextOf(newest), name + "\t-2\t7\t0\t0");
    list_.LogTrackUpdateBlockCounts(0, 2555);
    list_.LogTrackUpdateBlockCounts(1, 0);
    list_.LogTrackUpdateBlockCounts(1, 0);
    EXPECT_EQ(TextOf(newest), name + "\t-2\t7\t2555\t2");
    EXPECT_EQ(TextOf(first), before);
}

TEST_F(History, AddsToTheCountsOfAnEntry) {
    ScanFileFacts facts("file", 0);
    facts.UpdateBlocksTotal(10);
    facts.UpdateBlocksTotal(-3);
    facts.UpdateBlocksCurrent(4);
    facts.UpdateBlocksCurrent(1);
    facts.UpdateCRC(9);
    facts.UpdateStatus(20100);
    EXPECT_EQ(TextOf(facts), "file\t20100\t9\t7\t5");
}

TEST_F(History, WritesAnEntryInDecimalAndLeavesTheBaseAlone) {
    std::ostringstream stream;
    stream << std::hex << ScanFileFacts("file", 28001) << ' ' << 255;
    EXPECT_EQ(stream.str(), "file\t28001\t18446744073709551615\t0\t0 ff");
}

TEST_F(History, EnumeratesFromTheNewestToTheOldest) {
    const std::string first = Create();
    const std::string second = Create();
    const std::string third = Create();
    EXPECT_EQ(Walk(), (std::vector<std::string>{third, second, first}));
}

TEST_F(History, BringsAnIndexBeyondTheNewestBackToIt) {
    Create();
    const std::string newest = Create();
    SFL_Key key(7, 100);
    EXPECT_EQ(key.mode, 7);
    EXPECT_EQ(key.index, 99);
    EXPECT_EQ(list_.Enumerate(&key).name, newest);
    EXPECT_EQ(key.index, 0);
}

TEST_F(History, WalksOnFromWhereItBeganWhenTheListGrows) {
    const std::string first = Create();
    SFL_Key* key = list_.EnumerateOpen(0);
    EXPECT_EQ(key->index, 0);
    Create();
    EXPECT_EQ(list_.Enumerate(key).name, first);
    EXPECT_EQ(&list_.Enumerate(key), &SFF_Unreferenced);
    list_.EnumerateClose(key);
}

TEST_F(History, IgnoresANullKeyAtTheClose) {
    list_.EnumerateClose(nullptr);
    EXPECT_EQ(Walk(), std::vector<std::string>());
}

TEST_F(History, IsLoggedOldestFirst) {
    const std::string first = Create();
    list_.LogTrackUpdate(0);
    const std::string second = Create();
    const std::size_t before = log_.Text().size();
    list_.DumpScanHistory();
    EXPECT_EQ(log_.Text().substr(before), "\nCurrent Scan File History:\n" + first +
                                              "\t0\t18446744073709551615\t0\t0\n" + second +
                                              "\t28001\t18446744073709551615\t0\t0\n\n");
}

TEST_F(History, IsWalkedByOneThreadWhileAnotherAppends) {
    constexpr int kFiles = 3'000;
    ASSERT_EQ(writer_.CreateNext(true), 0);
    std::atomic<bool> done{false};
    std::atomic<bool> wrong{false};
    std::thread walker([&] {
        std::size_t longest = 0;
        while (!done || longest == 0) {
            const std::unique_ptr<SFL_Key> key(list_.EnumerateOpen(0));
            std::size_t length = 0;
            for (const ScanFileFacts* facts = &list_.Enumerate(key.get()); facts->Valid();
                 facts = &list_.Enumerate(key.get())) {
                ++length;
                wrong = wrong || facts->name.empty() || facts->blocksTotal > 2555;
            }
            wrong = wrong || length < longest;
            longest = length;
        }
    });
    for (int i = 0; i < kFiles; ++i) {
        list_.LogTrackCreate(writer_, 0);
        list_.LogTrackUpdateBlockCounts(0, 2555);
        list_.LogTrackUpdate(static_cast<unsigned long>(i));
        list_.LogTrackUpdate(0);
    }
    done = true;
    walker.join();
    EXPECT_FALSE(wrong);
    EXPECT_EQ(Walk().size(), static_cast<std::size_t>(kFiles));
}

}  // namespace
