#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanFileFormat.h"

/// Where in a pool the block types of a set lie: the pool is parted into cells of so many blocks,
/// and each cell counts the blocks of each type in it. It grows with its cells, not with the set.
class ScanSetMap {
  public:
    /// A pool of so many blocks in at most so many cells, of the same size but for the last.
    ScanSetMap(std::uint64_t poolBlocks, std::size_t mostCells);

    /// Counts a record; a block behind the pool's end lies nowhere. Any number of threads may add.
    void Add(const QuadAndBlock_s& record);

    // Once all were added.

    std::size_t Cells() const { return counts_.size(); }
    std::uint64_t BlocksPerCell() const { return perCell_; }
    std::uint64_t PoolBlocks() const { return poolBlocks_; }
    /// The type of most blocks in a cell; none in a cell without blocks.
    std::optional<unsigned> TypeOf(std::size_t cell) const;
    /// The blocks of a type in the whole pool.
    std::uint64_t Count(unsigned type) const;

  private:
    using Counts = std::array<std::atomic<std::uint64_t>, kBlockTypeCount>;

    std::uint64_t poolBlocks_;
    std::uint64_t perCell_;
    std::vector<Counts> counts_;
};
