#include "util/ostrelscan/progress.h"

namespace {

unsigned PercentDone(unsigned long long total, unsigned long long current) {
    if (total == 0) {
        return 100;
    }
    const auto left = static_cast<unsigned>((total - current) * 100 / total);
    const unsigned percent = 100 - left;
    return percent > 100 ? 100 : percent;  // also what wrapped below 0
}

}  // namespace

ProgressFigures ComputeProgress(unsigned long long total, unsigned long long current,
                                unsigned long long done, unsigned elapsed) {
    ProgressFigures figures{};
    // The sum of both counters is the rate that operators know and compare runs by.
    figures.rate = (current + done) / (elapsed + 1);
    figures.percent = PercentDone(total, current);
    figures.minutes = elapsed / 60;
    figures.minutesLeft = (static_cast<unsigned>((total - current) / (figures.rate + 1)) + 59) / 60;
    // Both sides are scaled by a thousand, and a file counts as 2560 records, near its 2555.
    figures.files = (100000 / (figures.percent + 1) * done + 2559) / 2560000 + 1;
    return figures;
}
