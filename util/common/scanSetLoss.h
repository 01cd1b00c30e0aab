#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "util/common/scanFileFormat.h"
#include "util/common/scanSet.h"
#include "util/common/scanSetCheck.h"

/// Blocks of the pool that lie together.
struct BlockSpan {
    std::uint64_t first;
    std::uint64_t end;  ///< the one behind the last

    bool operator==(const BlockSpan&) const = default;
};

/// Whether the records of a file can be read, as far as a check tells.
enum class ScanFileTrust {
    kGood,     ///< all of them, as they were saved
    kAltered,  ///< all of them, and the CRC says that they are not those that were saved
    kBroken,   ///< not all of them
};

ScanFileTrust TrustIn(const ScanSetFile& file, const ScanFileReport& report);

/// Finds the parts of the pool of which nobody knows what the set would hold there if its files
/// were whole: from where a file breaks off, or files are missing, up to the first block of the
/// next good file, or the pool's end. Of what the set still holds in these parts it does not tell.
class ScanSetLoss {
  public:
    /// For a set with so many files.
    explicit ScanSetLoss(std::size_t files) : ends_(files) {}

    /// Takes the next record of a file. Those of different files may come on different threads.
    void Add(std::size_t file, const QuadAndBlock_s& record);

    /// The parts, in order. With `altered` the whole of a file whose CRC is wrong is lost, too.
    std::vector<BlockSpan> Find(const ScanSet& set, const ScanSetReport& report,
                                bool altered) const;

  private:
    struct Ends {
        std::optional<std::uint64_t> first;
        std::uint64_t last = 0;
    };

    std::vector<Ends> ends_;
};
