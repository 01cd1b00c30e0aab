#pragma once

#include <cstddef>
#include <functional>

#include "util/common/scanSetIndex.h"

class ScanFileWalk;
class ScanSet;

namespace zsbtool {

struct Settings;

/// A record of a set, while it is shown.
struct WalkedRecord {
    std::size_t file;  ///< its place among the set's files
    const ScanFileWalk& walk;
    const QuadAndBlock_s& record;
};

/// Shows every record of a set, file by file on the threads of `--jobs`: those of one file in their
/// order, from one thread. `what` stands before the progress bar. Names the files that could not be
/// read to their end, and returns whether there were none.
bool WalkSet(const Settings& settings, const ScanSet& set, const char* what,
             const std::function<void(const WalkedRecord& walked)>& take);

/// Where the blocks of a set may lie, and whether every file could be read to its end.
struct IndexedSet {
    ScanSetIndex index;
    bool whole;
};

/// Makes the index of a set with `WalkSet`.
IndexedSet IndexSet(const Settings& settings, const ScanSet& set, const char* what);

}  // namespace zsbtool
