#pragma once

#include <cstdint>
#include <vector>

namespace zsbtool {

struct LoggedRun;

/// The unreadable blocks of a run, and how much of the pool its log speaks of.
struct BadBlocks {
    std::vector<std::uint64_t> blocks;  ///< sorted, none twice
    bool complete;                      ///< no error without its block, and the run was closed
    std::uint64_t known;                ///< what is told of the blocks below this one is all
};

BadBlocks StudyBadBlocks(const LoggedRun& run);

}  // namespace zsbtool
