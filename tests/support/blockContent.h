#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace support {

inline constexpr std::size_t kBlockBytes = 4096;
using Block = std::array<unsigned char, kBlockBytes>;

/// Makes the blocks of one sample pool. A block's content depends on the seed, its number and its
/// type alone, so blocks can be made in any order. Not for big-endian machines.
class BlockContent {
  public:
    explicit BlockContent(std::uint64_t seed) : seed_(seed) {}

    /// The image of block `number` as row `type` of kPoolTypes, or nothing for a zero block (some
    /// User blocks are). `decoy` puts "oVUk" behind the magic of an internal block, where it must
    /// not count.
    [[nodiscard]] std::optional<Block> Make(std::uint64_t number, std::size_t type,
                                            bool decoy) const;

    /// The label in front of the superblock: block 0, a User block.
    [[nodiscard]] Block MakeLabel() const;

  private:
    std::uint64_t seed_;
};

}  // namespace support
