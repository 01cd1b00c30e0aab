#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/common/scanFileStudy.h"

/// A file whose blocks are to be held against those of others.
struct TwiceCandidate {
    std::string path;
    BlockRange range;
    std::uint64_t twice = 0;  ///< blocks that were there before, in this file or one before it
};

/// Counts, for each of the files in their order, the blocks that came before. It reads the files
/// once for each stretch of 2^27 block numbers that they hold any of, so that memory stays at 16
/// MiB.
void CountTwice(std::vector<TwiceCandidate>& files);
