#include <gtest/gtest.h>

#include "util/zsbtool/progress.h"

namespace zsbtool {
namespace {

constexpr std::uint64_t kMiB = 1 << 20;

TEST(ProgressLine, ShowsPartRateAndTimeLeft) {
    EXPECT_EQ(ProgressLine("check", 25 * kMiB, 100 * kMiB, 5),
              "check [######..................]  25%  5.0 MiB/s  15 s left");
}

TEST(ProgressLine, CountsLongTimesInMinutesAndHours) {
    EXPECT_TRUE(ProgressLine("x", kMiB, 61 * kMiB, 2).ends_with("  2:00 min left"));
    EXPECT_TRUE(ProgressLine("x", kMiB, 3600 * kMiB, 1).ends_with("  59:59 min left"));
    EXPECT_TRUE(ProgressLine("x", kMiB, 3601 * kMiB, 1).ends_with("  1:00:00 h left"));
}

TEST(ProgressLine, KnowsNoTimeLeftAtTheBeginningAndTheEnd) {
    EXPECT_EQ(ProgressLine("x", 0, 10, 2), "x [........................]   0%  0 B/s");
    EXPECT_EQ(ProgressLine("x", 10, 10, 2), "x [########################] 100%  5 B/s");
    EXPECT_EQ(ProgressLine("x", 0, 0, 2), "x [########################] 100%  0 B/s");
}

TEST(ProgressLine, StaysWithinItsBarWhenThereIsMoreToDoThanWasSaid) {
    EXPECT_EQ(ProgressLine("x", 20, 10, 1), "x [########################] 100%  20 B/s");
}

}  // namespace
}  // namespace zsbtool
