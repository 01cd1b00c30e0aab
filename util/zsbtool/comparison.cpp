#include "util/zsbtool/comparison.h"

#include <cstring>
#include <limits>
#include <optional>

#include "util/common/blockTypes.h"
#include "util/common/scanSetBlocks.h"
#include "util/zsbtool/poolImage.h"

namespace zsbtool {

namespace {

constexpr std::uint64_t kLastBlock = std::numeric_limits<std::uint64_t>::max();

/// Goes through the blocks that a set holds in a piece.
class Sweep {
  public:
    Sweep(const ComparedSet& compared, const PieceOfPool& piece)
        : blocks_(compared.set, compared.index), last_(piece.last) {
        Seek(piece.first);
    }

    bool AtEnd() const { return !place_; }
    std::uint64_t Block() const { return place_->record->blockNumber; }
    unsigned Type() const { return place_->type; }
    const char* Bytes() const { return place_->record->block; }
    /// Whether this block comes before that of another sweep.
    bool Before(const Sweep& other) const {
        return !AtEnd() && (other.AtEnd() || Block() < other.Block());
    }

    void Advance() {
        const std::uint64_t block = Block();
        place_.reset();
        if (block < last_) {
            Seek(block + 1);
        }
    }

  private:
    void Seek(std::uint64_t from) {
        place_ = blocks_.Next(from);
        if (place_ && place_->record->blockNumber > last_) {
            place_.reset();
        }
    }

    ScanSetBlocks blocks_;
    const std::uint64_t last_;
    std::optional<ScanPlace> place_;
};

void Judge(ComparedPiece& result, const Sweep& held, const char* other) {
    if (std::memcmp(held.Bytes(), other, kPoolBlockSize) == 0) {
        result.same += 1;
    } else {
        result.differ.push_back({held.Block(), held.Type()});
    }
}

}  // namespace

bool ComparedBlocks::Take(unsigned type) const {
    return (msap || kBlockTypes[type].magic != kMagicMSAP) && (user || type != kUserType);
}

std::vector<PieceOfPool> PiecesOf(const ScanSetIndex& index) {
    std::vector<PieceOfPool> pieces;
    std::uint64_t first = 0;
    for (const ScanStretch& stretch : index.Stretches()) {
        // A compressed file is read from its start, and so once, when it is in one piece.
        if (stretch.first == 0 && stretch.range.lowest > first) {
            pieces.push_back({first, stretch.range.lowest - 1});
            first = stretch.range.lowest;
        }
    }
    pieces.push_back({first, kLastBlock});
    return pieces;
}

ComparedPiece Compare(const ComparedSet& set, const PoolImage& image, const ComparedBlocks& blocks,
                      const PieceOfPool& piece) {
    ComparedPiece result;
    for (Sweep held(set, piece); !held.AtEnd(); held.Advance()) {
        if (!blocks.Take(held.Type())) {
            continue;
        }
        char bytes[kPoolBlockSize];
        const PoolImage::Outcome outcome = image.ReadBlock(held.Block(), bytes);
        if (outcome == PoolImage::Outcome::kRead) {
            Judge(result, held, bytes);
            continue;
        }
        result.missing.push_back({held.Block(), held.Type()});
        if (outcome == PoolImage::Outcome::kFailed) {
            result.unreadable.push_back(held.Block());
        }
    }
    return result;
}

ComparedPiece Compare(const ComparedSet& first, const ComparedSet& second,
                      const ComparedBlocks& blocks, const PieceOfPool& piece) {
    ComparedPiece result;
    Sweep one(first, piece);
    Sweep other(second, piece);
    while (!one.AtEnd() || !other.AtEnd()) {
        const bool oneAlone = one.Before(other);
        const bool otherAlone = other.Before(one);
        const Sweep& held = otherAlone ? other : one;
        if (blocks.Take(held.Type())) {
            if (oneAlone || otherAlone) {
                result.missing.push_back({held.Block(), held.Type()});
            } else {
                Judge(result, one, other.Bytes());
            }
        }
        if (!otherAlone) {
            one.Advance();
        }
        if (!oneAlone) {
            other.Advance();
        }
    }
    return result;
}

}  // namespace zsbtool
