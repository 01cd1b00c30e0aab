#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/common/scanSet.h"
#include "util/common/scanSetIndex.h"
#include "util/zsbtool/differences.h"

namespace zsbtool {

class PoolImage;

/// Which blocks are compared.
struct ComparedBlocks {
    bool msap = true;
    bool user = true;  ///< those of no known type

    bool Take(unsigned type) const;
};

/// A set with its index; borrowed.
struct ComparedSet {
    const ScanSet& set;
    const ScanSetIndex& index;
};

/// What a piece of a comparison came to, by the numbers of the blocks.
struct ComparedPiece {
    std::uint64_t same = 0;
    std::vector<DifferentBlock> differ;
    std::vector<DifferentBlock> missing;    ///< one side does not hold them
    std::vector<std::uint64_t> unreadable;  ///< those of them that a device refused
};

/// The block numbers of a piece, to the last one.
struct PieceOfPool {
    std::uint64_t first;
    std::uint64_t last;
};

/// Parts all block numbers into pieces that are compared apart: each takes about a file of the set.
std::vector<PieceOfPool> PiecesOf(const ScanSetIndex& index);

/// Holds what a set holds in a piece against an image.
ComparedPiece Compare(const ComparedSet& set, const PoolImage& image, const ComparedBlocks& blocks,
                      const PieceOfPool& piece);

/// Holds two sets against each other; what one of them does not hold is missing. A block's type is
/// that of the first that holds it.
ComparedPiece Compare(const ComparedSet& first, const ComparedSet& second,
                      const ComparedBlocks& blocks, const PieceOfPool& piece);

}  // namespace zsbtool
