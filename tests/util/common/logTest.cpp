#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/capturedLog.h"
#include "util/common/log.h"

namespace {

TEST(LogRedirection, SendsStandardErrorToItsTargetAndGivesTheOldBufferAndFlagsBack) {
    std::streambuf* const oldBuffer = std::cerr.rdbuf();
    const std::ios_base::fmtflags oldFlags = std::cerr.flags();
    std::stringbuf target;
    {
        const LogRedirection redirection(target);
        EXPECT_NE(std::cerr.rdbuf(), oldBuffer);
        std::cerr << "line " << 255 << '\n' << std::uppercase << std::showbase;
    }
    EXPECT_EQ(std::cerr.rdbuf(), oldBuffer);
    EXPECT_EQ(std::cerr.flags(), oldFlags);
    EXPECT_EQ(target.str(), "line ff\n");
}

TEST(LogRedirection, TakesSingleCharactersAndFlushes) {
    std::stringbuf target;
    const LogRedirection redirection(target);
    std::cerr.put('x');
    std::cerr << std::endl;
    EXPECT_EQ(target.str(), "x\n");
    EXPECT_TRUE(std::cerr.good());
}

TEST(SealedLog, TakesItsLastWordsAndNothingBehindThem) {
    std::stringbuf target;
    const LogRedirection redirection(target);
    LogLine() << "an entry\n";
    SealLog("the end\n");
    LogLine() << "too late\n";
    std::cerr.put('x');
    SealLog("another end\n");
    EXPECT_EQ(target.str(), "an entry\nthe end\n");
    EXPECT_TRUE(std::cerr.good());
    EXPECT_FALSE(redirection.Failed());
}

TEST(SealedLog, NeedsALog) {
    std::stringbuf target;
    std::streambuf* const oldBuffer = std::cerr.rdbuf(&target);
    SealLog("the end\n");
    LogLine() << "an entry\n";
    std::cerr.rdbuf(oldBuffer);
    EXPECT_EQ(target.str(), "an entry\n");
}

/// Counts the flushes that reach it.
class FlushCounter : public std::stringbuf {
  public:
    int flushes = 0;

  protected:
    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST(LogRedirection, FlushesEveryEntryAtOnce) {
    FlushCounter target;
    const LogRedirection redirection(target);
    LogLine() << "one entry\n";
    EXPECT_EQ(target.str(), "one entry\n");
    EXPECT_GE(target.flushes, 1);
}

TEST(LogRedirection, KnowsWhetherItsTargetTookEverything) {
    std::stringbuf target;
    const LogRedirection redirection(target);
    LogLine() << "one entry\n";
    std::cerr << std::flush;
    EXPECT_FALSE(redirection.Failed());
}

TEST(LogRedirection, NoticesWhatItsTargetCannotStore) {
    std::filebuf target;
    ASSERT_NE(target.open("/dev/full", std::ios::out), nullptr);
    const LogRedirection redirection(target);
    EXPECT_FALSE(redirection.Failed());
    LogLine() << "one entry\n";
    EXPECT_TRUE(redirection.Failed());
}

/// Takes a limited number of characters.
class ShortTarget : public std::stringbuf {
  protected:
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        return std::stringbuf::xsputn(text, std::min(length, kRoom));
    }

  private:
    static constexpr std::streamsize kRoom = 5;
};

TEST(LogRedirection, NoticesWhatItsTargetTakesNotWhole) {
    ShortTarget target;
    const LogRedirection redirection(target);
    LogLine() << "five\n";
    EXPECT_FALSE(redirection.Failed());
    LogLine() << "longer\n";
    EXPECT_TRUE(redirection.Failed());
    LogLine() << "five\n";
    EXPECT_TRUE(redirection.Failed()) << "what was lost stays lost";
}

/// Notices a write that begins while another has not ended.
class OverlapDetector : public std::streambuf {
  public:
    std::atomic<bool> overlapped{false};

  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize length) override {
        overlapped = busy_.exchange(true) || overlapped;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        busy_ = false;
        return length;
    }

  private:
    std::atomic<bool> busy_{false};
};

TEST(LogRedirection, HandsOnOneEntryAtATime) {
    OverlapDetector target;
    const LogRedirection redirection(target);
    const auto write = [] {
        for (int i = 0; i < 50; ++i) {
            LogLine() << "entry\n";
        }
    };
    std::thread other(write);
    write();
    other.join();
    EXPECT_FALSE(target.overlapped);
}

TEST(LogLine, TakesTheNumberBaseOfTheLogAndLeavesItAlone) {
    const support::CapturedLog log;
    LogLine() << 4104 << '\n';
    LogLine() << std::dec << 4104 << '\n';
    LogLine() << 4104 << '\n';
    std::cerr << std::dec;
    LogLine() << std::hex << 4104 << '\n';
    LogLine() << 4104 << '\n';
    EXPECT_EQ(log.Text(), "1008\n4104\n1008\n1008\n4104\n");
}

TEST(LogLine, TakesTheBaseWhenItIsMade) {
    const support::CapturedLog log;
    {
        LogLine line;
        std::cerr << std::dec;
        line << 16;
    }
    EXPECT_EQ(log.Text(), "10");
}

TEST(LogLine, IsHandedOverWholeWhenItEnds) {
    const support::CapturedLog log;
    {
        LogLine line;
        line << "first ";
        LogLine() << "second\n";
        line << "half\n";
    }
    EXPECT_EQ(log.Text(), "second\nfirst half\n");
}

TEST(LogLine, IsHandedOverWholeHoweverLongItIs) {
    for (const std::size_t length : {999U, 1000U, 1001U, 2000U, 2001U, 100'000U}) {
        const support::CapturedLog log;
        std::string wanted;
        {
            LogLine line;
            for (std::size_t i = 0; wanted.size() < length; ++i) {
                const std::string piece =
                    std::string(i % 37, 'x').substr(0, length - wanted.size() - 1) + '|';
                line << piece;
                wanted += piece;
            }
        }
        EXPECT_EQ(log.Text(), wanted) << length;
    }
}

TEST(LogLine, TakesOneLongTextAndWhatStandsBehindIt) {
    const support::CapturedLog log;
    const std::string text(5000, 'x');
    LogLine() << "begin " << text << ' ' << 255 << '\n';
    EXPECT_EQ(log.Text(), "begin " + text + " ff\n");
}

TEST(LogLine, IsFlushedWithoutARedirectionToo) {
    FlushCounter target;
    std::streambuf* const oldBuffer = std::cerr.rdbuf(&target);
    LogLine() << "one entry\n";
    const int flushesOfOne = target.flushes;
    LogLine() << "another\n";
    std::cerr.rdbuf(oldBuffer);
    EXPECT_EQ(target.str(), "one entry\nanother\n");
    EXPECT_EQ(flushesOfOne, 1);
    EXPECT_EQ(target.flushes, 2);
}

TEST(LogLine, OfSeveralThreadsIsNeverTorn) {
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    const support::CapturedLog log;
    std::vector<std::thread> writers;
    writers.reserve(kThreads);
    for (int writer = 0; writer < kThreads; ++writer) {
        writers.emplace_back([writer] {
            for (int i = 0; i < kLines; ++i) {
                LogLine() << "writer " << writer << " says " << i << " of "
                          << std::string(40, static_cast<char>('a' + writer)) << '\n';
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    std::map<int, int> next;
    std::istringstream text(log.Text());
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        std::string word;
        int writer = -1;
        words >> word >> std::hex >> writer;
        std::ostringstream expected;
        expected << std::hex << "writer " << writer << " says " << next[writer]++ << " of "
                 << std::string(40, static_cast<char>('a' + writer));
        ASSERT_EQ(line, expected.str());
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(kThreads));
    for (const auto& [writer, lines] : next) {
        EXPECT_EQ(lines, kLines) << writer;
    }
}

TEST(LogSystemError, NamesTheSystemsReasonAndReturnsItsStatus) {
    const support::CapturedLog log;
    errno = EINTR;  // the number is the argument, whatever happened since
    EXPECT_EQ(LogSystemError("ZSBFile::Write:", ENOSPC), 0x22BA5000 + 28);
    EXPECT_EQ(log.Text(), "ZSBFile::Write:: No space left on device\n");
}

}  // namespace
