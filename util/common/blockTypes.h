#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

/// The word of a block that is compared with a type's magic.
enum class MagicWord { First, Second, None };

/// What is known of one type of pool block.
struct BlockType {
    const char* name;     ///< display text; matching is by magic alone
    std::uint32_t magic;  ///< the little-endian word that marks the type
    MagicWord word = MagicWord::First;
};

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

/// Types known by a block's first word, then those known by its second, then the catch-all. The two
/// DBT rows carry each other's magic, unlike every other branch and leaf: support staff read
/// the counts of old runs with these names, so the crossing stays.
inline constexpr auto kBlockTypes = std::to_array<BlockType>({
    {"ADGD tree", BlockMagic("ADGD")},
    {"BT branch", BlockMagic("BRCH")},
    {"BT leaf Z32", kMagicLeaf32},
    {"BT leaf Z64", kMagicLeaf64},
    {"BTI branch", BlockMagic("iBbM")},
    {"BTI leaf", BlockMagic("iBlM")},
    {"Checkpoint", BlockMagic("CKP7")},
    {"DBT branch", BlockMagic("DLEF")},
    {"DBT leaf", BlockMagic("DBRH")},
    {"EFL branch", BlockMagic("EBRH")},
    {"EFL leaf", BlockMagic("ELEF")},
    {"EFL log", BlockMagic("ELOG")},
    {"FMAP branch", BlockMagic("PAMB")},
    {"FMAP leaf", BlockMagic("PAML")},
    {"FMAP root", BlockMagic("PAMR")},
    {"FT branch", BlockMagic("XBRH")},
    {"FT leaf", BlockMagic("XLEF")},
    {"MFL node", BlockMagic("MFL ")},
    {"MSAP", kMagicMSAP},
    {"NT node", BlockMagic("DirH")},
    {"PT node(old)", BlockMagic("PRGQ")},
    {"PT node", BlockMagic("PRG2")},
    {"PL node", BlockMagic("PLOG")},
    {"SBH Z32", kMagicSuperblock32},
    {"SBH Z64", kMagicSuperblock64},
    {"SBH(del Z32)", BlockMagic("sbo5")},
    {"SBH(del Z64)", BlockMagic("so64")},
    {"Snap admin", BlockMagic("APNS")},
    {"Snap header", BlockMagic("HPNS")},
    {"Snap map", BlockMagic("MPNS")},
    {"Snap leaf", BlockMagic("LPNS")},
    {"UBT branch", BlockMagic("UBRH")},
    {"UBT leaf", BlockMagic("ULEF")},
    {"UBT name", BlockMagic("UNAM")},
    {"PDB", BlockMagic("ZPoo")},
    {"PLDB", BlockMagic("ZPLo")},
    {"VDB", BlockMagic("ZVol")},
    {"VLDB", BlockMagic("ZVLo")},
    {"Zlog", BlockMagic("ZLBH")},
    {"KUVO(New)", BlockMagic("oVUk"), MagicWord::Second},
    {"User", 0, MagicWord::None},
});

/// How many types of the table are known by this word of a block.
constexpr unsigned CountTypes(MagicWord word) {
    return static_cast<unsigned>(std::ranges::count(kBlockTypes, word, &BlockType::word));
}

inline constexpr unsigned kBlockTypeCount = kBlockTypes.size();
inline constexpr unsigned kFirstWordTypes = CountTypes(MagicWord::First);
inline constexpr unsigned kSecondWordTypes = CountTypes(MagicWord::Second);
inline constexpr unsigned kFirstWordStart = 0;
inline constexpr unsigned kSecondWordStart = kFirstWordStart + kFirstWordTypes;
inline constexpr unsigned kUserType = kSecondWordStart + kSecondWordTypes;

static_assert(std::ranges::is_sorted(kBlockTypes, {}, &BlockType::word),
              "the groups stand in order");
static_assert(kUserType + 1 == kBlockTypeCount, "the catch-all stands last, and alone");

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
