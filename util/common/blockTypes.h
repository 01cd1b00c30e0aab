#pragma once

#include <array>
#include <cstdint>

/// What is known of one type of pool block.
struct BlockType {
    const char* name;     ///< display text; matching is by magic alone
    std::uint32_t magic;  ///< the little-endian word that marks the type
};

/// The table's groups: types known by a block's first word, then those known by its second, then
/// the catch-all.
inline constexpr unsigned kBlockTypeCount = 41;
inline constexpr unsigned kFirstWordTypes = 39;
inline constexpr unsigned kSecondWordTypes = 1;
inline constexpr unsigned kFirstWordStart = 0;
inline constexpr unsigned kSecondWordStart = kFirstWordStart + kFirstWordTypes;
inline constexpr unsigned kUserType = kSecondWordStart + kSecondWordTypes;

/// The word that the four bytes make at the start of a block.
constexpr std::uint32_t BlockMagic(const char (&bytes)[5]) {
    std::uint32_t magic = 0;
    for (unsigned i = 4; i-- > 0;) {
        magic = magic << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return magic;
}

inline constexpr std::uint32_t kMagicSuperblock32 = BlockMagic("SPB5");
inline constexpr std::uint32_t kMagicSuperblock64 = BlockMagic("SB64");
inline constexpr std::uint32_t kMagicLeaf32 = BlockMagic("LEAF");
inline constexpr std::uint32_t kMagicLeaf64 = BlockMagic("BtqZ");
inline constexpr std::uint32_t kMagicMSAP = BlockMagic("PASM");

extern const std::array<BlockType, kBlockTypeCount> kBlockTypes;

/// A block's first two words, by which it is classified.
struct BlockWords {
    std::uint32_t first;
    std::uint32_t second;
};

/// Reads the two words of a block image of at least 8 bytes.
BlockWords ReadBlockWords(const void* block);

/// The index of the type in one group with this magic, or `kUserType` when the group has none.
unsigned FindFirstWordType(std::uint32_t magic);
unsigned FindSecondWordType(std::uint32_t magic);

/// The index of a block's type: the first word decides, else the second, else `kUserType`.
unsigned ClassifyBlock(BlockWords words);
