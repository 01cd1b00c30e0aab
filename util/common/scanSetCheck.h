#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanFileStudy.h"
#include "util/common/scanProblem.h"
#include "util/common/scanSet.h"

/// What one file of a set came to.
struct ScanFileReport {
    std::uint64_t records = 0;          ///< read whole
    std::vector<ScanProblem> problems;  ///< all of the file's, those of its header first
};

/// What is to be said of a set whose every record was read.
struct ScanSetReport {
    std::vector<ScanFileReport> files;  ///< one for each of the set's files
    std::uint64_t records = 0;
    std::array<std::uint64_t, kBlockTypeCount> types{};  ///< records of each block type
    std::vector<ScanProblem> problems;  ///< the set's, then file by file, then the strays
    std::vector<ScanProblem> warnings;  ///< they say nothing against the set

    bool Restorable() const { return problems.empty(); }
};

/// Is shown every record of a set, with its file's place among the set's files. The records of a
/// file come in their order, from the thread that reads it; other files may be read meanwhile.
using ScanSetRecordTaker = std::function<void(std::size_t file, const QuadAndBlock_s& record)>;

/// Reads every record of a set and judges it, on so many threads; the report does not depend on
/// their number. `progress` is told of `set.Bytes()` in all. `take` is for who has use for the
/// records meanwhile; what it throws ends the check.
ScanSetReport CheckScanSet(const ScanSet& set, unsigned jobs, const ScanProgress& progress = {},
                           const ScanSetRecordTaker& take = {});

/// Studies one file of a set, on any thread.
using ScanFileStudent = std::function<ScanFileStudy(const ScanSetFile& file)>;

/// The same for a work that is done file by file and reads every record anyway: `study` is the
/// reading, once for each of the set's files.
ScanSetReport StudyAndCheckScanSet(const ScanSet& set, unsigned jobs, const ScanFileStudent& study);
