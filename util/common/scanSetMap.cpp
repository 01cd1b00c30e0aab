#include "util/common/scanSetMap.h"

#include <algorithm>

namespace {

/// `count` parted into parts of `size`, the last of which may be smaller.
std::uint64_t PartsOf(std::uint64_t count, std::uint64_t size) {
    return count / size + (count % size != 0 ? 1 : 0);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): the larger one comes first
ScanSetMap::ScanSetMap(std::uint64_t poolBlocks, std::size_t mostCells)
    : poolBlocks_(poolBlocks),
      perCell_(std::max<std::uint64_t>(1, PartsOf(poolBlocks, mostCells))),
      counts_(PartsOf(poolBlocks, perCell_)) {}

void ScanSetMap::Add(const QuadAndBlock_s& record) {
    if (record.blockNumber < poolBlocks_) {
        const unsigned type = ClassifyBlock(ReadBlockWords(record.block));
        counts_[record.blockNumber / perCell_][type].fetch_add(1, std::memory_order_relaxed);
    }
}

std::optional<unsigned> ScanSetMap::TypeOf(std::size_t cell) const {
    const Counts& counts = counts_[cell];
    const auto most = std::ranges::max_element(
        counts, {}, [](const std::atomic<std::uint64_t>& count) { return count.load(); });
    return *most == 0 ? std::nullopt : std::optional(static_cast<unsigned>(most - counts.begin()));
}

std::uint64_t ScanSetMap::Count(unsigned type) const {
    std::uint64_t sum = 0;
    for (const Counts& counts : counts_) {
        sum += counts[type];
    }
    return sum;
}
