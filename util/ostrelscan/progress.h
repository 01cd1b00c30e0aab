#pragma once

/// What the progress line of a save says besides the two counters.
struct ProgressFigures {
    unsigned long long rate;  ///< "blocks a second"
    unsigned percent;         ///< 0 to 100
    unsigned minutes;         ///< since the start
    unsigned minutesLeft;
    unsigned long long files;  ///< how many scan files are expected in the end
};

/// Works the figures out for `current` of `total` blocks examined and `done` saved after so many
/// seconds.
ProgressFigures ComputeProgress(unsigned long long total, unsigned long long current,
                                unsigned long long done, unsigned elapsed);
