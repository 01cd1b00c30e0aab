#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanFileFormat.h"
#include "util/common/scanProblem.h"

/// The lowest and the highest of some block numbers.
struct BlockRange {
    std::uint64_t lowest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t highest = 0;

    void Include(std::uint64_t block) {
        lowest = block < lowest ? block : lowest;
        highest = block > highest ? block : highest;
    }
    bool Meets(const BlockRange& other) const {
        return lowest <= other.highest && other.lowest <= highest;
    }
};

/// What the records of one scan file came to, by themselves.
struct ScanFileStudy {
    std::uint64_t records = 0;  ///< read whole
    std::array<std::uint64_t, kBlockTypeCount> types{};
    BlockRange range;                    ///< of all blocks; none without records
    std::optional<std::uint64_t> first;  ///< the first block inside the pool
    std::optional<unsigned> superblock;  ///< the type of block 1, where it is there
    std::uint64_t repeated = 0;          ///< blocks that are the one before
    bool ascending = true;               ///< no block is below the one before
    std::vector<ScanProblem> problems;   ///< of the records and the data; not of the header
};

/// Is told how many more bytes are done, from the thread that does them.
using ScanProgress = std::function<void(std::uint64_t bytes)>;

/// Is shown every record, in the order of the file, from the thread that reads it.
using ScanRecordTaker = std::function<void(const QuadAndBlock_s& record)>;

/// Reads every record of the file `name` in `folder`, which ends in "/". A file that cannot be
/// opened, or whose header cannot be believed, has none, and no problem is made of that here.
ScanFileStudy StudyScanFile(const std::string& folder, const std::string& name,
                            const ScanProgress& progress = {}, const ScanRecordTaker& take = {});
