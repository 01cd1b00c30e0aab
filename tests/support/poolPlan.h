#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/poolTypes.h"

namespace support {

struct PoolWish {
    std::uint64_t blocks = 0;  ///< kSmallestPool or more
    std::uint64_t seed = 1;
    double internal = 0.35;                   ///< share of blocks that are not User blocks, 0 to 1
    std::size_t superblock = kSuperblockZ32;  ///< type of block 1
};

inline constexpr std::uint64_t kSmallestPool = 64;

using TypeCounts = std::array<std::uint64_t, kPoolTypes.size()>;

/// The row of kPoolTypes of each block. Block 0 is a User block, block 1 the superblock, the last
/// block is internal; every type occurs, and internal blocks stand in runs as in a real pool.
std::vector<std::uint8_t> PlanPool(const PoolWish& wish);

}  // namespace support
