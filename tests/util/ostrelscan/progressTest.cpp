#include <gtest/gtest.h>

#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/progress.h"
#include "util/ostrelscan/scanUI.h"

namespace {

struct Moment {
    const char* name;
    unsigned long long total;
    unsigned long long current;
    unsigned long long done;
    unsigned elapsed;
    unsigned long long rate;
    unsigned percent;
    unsigned minutes;
    unsigned minutesLeft;
    unsigned long long files;
};

class Progress : public testing::TestWithParam<Moment> {};

TEST_P(Progress, HasItsFigures) {
    const Moment& row = GetParam();
    const ProgressFigures figures = ComputeProgress(row.total, row.current, row.done, row.elapsed);
    EXPECT_EQ(figures.rate, row.rate);
    EXPECT_EQ(figures.percent, row.percent);
    EXPECT_EQ(figures.minutes, row.minutes);
    EXPECT_EQ(figures.minutesLeft, row.minutesLeft);
    EXPECT_EQ(figures.files, row.files);
}

INSTANTIATE_TEST_SUITE_P(
    Moments, Progress,
    testing::Values(
        Moment{"ZeroPercentAtTheStart", 1000, 0, 0, 0, 0, 0, 0, 17, 1},
        Moment{"HundredPercentAtTheEnd", 1000, 1000, 0, 0, 1000, 100, 0, 0, 1},
        Moment{"OneFileWhenNothingIsDone", 1'000'000, 500'000, 0, 59, 8333, 50, 0, 1, 1},
        Moment{"RateAddsBothCounters", 1000, 300, 200, 9, 50, 30, 0, 1, 1},
        Moment{"RateCountsTheSecondThatRuns", 1000, 300, 200, 0, 500, 30, 0, 1, 1},
        Moment{"MinutesAreWhole", 1000, 500, 0, 119, 4, 50, 1, 2, 1},
        Moment{"TwoMinutesAreTwo", 1000, 500, 0, 120, 4, 50, 2, 2, 1},
        Moment{"MinutesLeftAreRoundedUp", 7320, 120, 0, 1, 60, 2, 0, 2, 1},
        Moment{"MinutesLeftOfWholeMinutes", 7440, 120, 0, 1, 60, 2, 0, 2, 1},
        Moment{"PercentIsRoundedUp", 1000, 1, 0, 0, 1, 1, 0, 9, 1},
        Moment{"PercentIs99WithAHundredthLeft", 1000, 990, 0, 0, 990, 99, 0, 0, 1},
        Moment{"PercentIs100WithLessThanAHundredthLeft", 1000, 991, 0, 0, 991, 100, 0, 0, 1},
        Moment{"FilesAtHalfTime", 10'220, 5'110, 5'110, 9, 1022, 50, 0, 1, 4},
        Moment{"FilesAtTheEnd", 10'220, 10'220, 10'220, 9, 2044, 100, 0, 0, 4},
        Moment{"FilesJustBelowOneMore", 10'000'000, 200'000, 7'680, 9, 20'768, 2, 0, 8, 100},
        Moment{"FilesJustReachingOneMore", 10'000'000, 200'000, 347'677, 9, 54'767, 2, 0, 3, 4'528},
        Moment{"FilesOfOneRecord", 1000, 1000, 1, 9, 100, 100, 0, 0, 1},
        Moment{"FilesWithoutOverflow", 1ULL << 40, 1ULL << 39, 1ULL << 39, 999, 1099511627ULL, 50,
               16, 9, 420'906'796ULL},
        Moment{"CurrentBeyondTheTotalIsHundredPercent", 1000, 1500, 0, 0, 1500, 100, 0, 66'432'262,
               1},
        Moment{"NoBlocksAtAll", 0, 0, 0, 0, 0, 100, 0, 0, 1}),
    [](const auto& row) { return row.param.name; });

TEST(TypeTable, FillsThreeColumnsOfFourteenRowsOneAfterTheOther) {
    const struct {
        int index;
        int row;
        int column;
    } places[] = {{0, 5, 0},    {1, 6, 0},   {13, 18, 0}, {14, 5, 26},
                  {27, 18, 26}, {28, 5, 52}, {40, 17, 52}};
    BlockSelector selector;
    for (const auto& place : places) {
        int row = -1;
        int column = -1;
        UserInterface::GetAbsoluteSBLocation(&selector, place.index, &row, &column);
        EXPECT_EQ(row, place.row) << place.index;
        EXPECT_EQ(column, place.column) << place.index;
    }
}

}  // namespace
