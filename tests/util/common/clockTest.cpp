#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <sstream>
#include <string>

#include "tests/support/capturedLog.h"
#include "util/common/clock.h"

namespace {

using ::testing::MatchesRegex;

/// A fixed time zone of 5 hours and 30 minutes east, without daylight saving.
class Clock : public testing::Test {
  protected:
    Clock() { SetZone("TST-5:30"); }
    void TearDown() override { SetZone(nullptr); }

    /// Empty when the line has none.
    static std::string EpochOf(const std::string& logLine) {
        const std::string key = " timeValue=\"";
        const std::size_t start = logLine.find(key);
        const std::size_t end = logLine.find('"', start + key.size());
        return start == std::string::npos
                   ? ""
                   : logLine.substr(start + key.size(), end - start - key.size());
    }

    /// The local time as it is logged, worked out without the zone's name.
    static std::string TextOf(std::time_t time) {
        const std::time_t shifted = time + 19'800;
        std::tm parts{};
        gmtime_r(&shifted, &parts);
        char text[80] = "";
        std::strftime(text, sizeof text, "%b %d, %Y  %I:%M:%S %p", &parts);
        return "\"" + std::string(text) + "  +0530\"";
    }

  private:
    static void SetZone(const char* zone) {
        if (zone != nullptr) {
            setenv("TZ", zone, 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
};

/// Collects standard output of the stream, not of the descriptor.
class CapturedScreen {
  public:
    CapturedScreen() : old_(std::cout.rdbuf(&buffer_)) {}
    ~CapturedScreen() { std::cout.rdbuf(old_); }
    CapturedScreen(const CapturedScreen&) = delete;
    CapturedScreen& operator=(const CapturedScreen&) = delete;
    std::string Text() const { return buffer_.str(); }

  private:
    std::stringbuf buffer_;
    std::streambuf* old_;
};

TEST_F(Clock, LogsTheTimeInItsOwnQuotesWithTwoBlanks) {
    const support::CapturedLog log;
    LogCurrentTime(false);
    EXPECT_THAT(
        log.Text(),
        MatchesRegex(
            "<CurrentTime time=\"(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [0-3][0-9], "
            "[0-9]{4}  (0[1-9]|1[0-2]):[0-5][0-9]:[0-6][0-9] (AM|PM)  \\+0530\" "
            "timeValue=\"[0-9]+\" />\n"));
}

TEST_F(Clock, LogsTheLocalTimeOfTheSecondsItLogsInDecimal) {
    const std::time_t before = std::time(nullptr);
    const support::CapturedLog log;
    LogCurrentTime(false);
    const std::string seconds = EpochOf(log.Text());
    ASSERT_NE(seconds, "");
    const std::time_t logged = std::stoll(seconds);
    EXPECT_GE(logged, before);
    EXPECT_LE(logged, std::time(nullptr));
    EXPECT_EQ(log.Text(),
              "<CurrentTime time=" + TextOf(logged) + " timeValue=\"" + seconds + "\" />\n");
}

TEST_F(Clock, ShowsTheSameTimeOnTheScreenOnlyWhenAsked) {
    const support::CapturedLog log;
    const CapturedScreen screen;
    LogCurrentTime(false);
    EXPECT_EQ(screen.Text(), "");
    const std::size_t silent = log.Text().size();
    LogCurrentTime(true);
    const std::string seconds = EpochOf(log.Text().substr(silent));
    ASSERT_NE(seconds, "");
    EXPECT_EQ(screen.Text(), "  Current time   " + TextOf(std::stoll(seconds)) + "\n");
}

TEST_F(Clock, DisplaysTheTimeAsAPlainLineOfTheLog) {
    std::time_t before = 0;
    std::string shown;
    do {
        before = std::time(nullptr);
        const support::CapturedLog log;
        DisplayTime();
        shown = log.Text();
    } while (std::time(nullptr) != before);
    EXPECT_EQ(shown, "Current time   " + TextOf(before) + "\n");
}

TEST(UTCTime, IsTheEpochTime) {
    const std::time_t before = std::time(nullptr);
    const std::int64_t now = Ostrel::GetUTCTime();
    EXPECT_GE(now, before);
    EXPECT_LE(now, std::time(nullptr));
}

TEST(Delay, SleepsSoManyMillisecondsAndReturnsZero) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(Ostrel::LB_delay(30), 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const double seconds = static_cast<double>(after.tv_sec - before.tv_sec) +
                           static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
    EXPECT_GE(seconds, 0.030);
    EXPECT_LT(seconds, 10);
}

}  // namespace
