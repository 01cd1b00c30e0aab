#include "util/common/blockTypes.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "pool words are read in memory order");

// The two DBT rows carry each other's magic, unlike every other branch and leaf: support staff read
// the counts of old runs with these names, so the crossing stays.
const std::array<BlockType, kBlockTypeCount> kBlockTypes{{
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
    {"KUVO(New)", BlockMagic("oVUk")},
    {"User", 0},
}};

namespace {

unsigned FindType(std::uint32_t magic, unsigned start, unsigned count) {
    for (unsigned index = start; index < start + count; ++index) {
        if (kBlockTypes[index].magic == magic) {
            return index;
        }
    }
    return kUserType;
}

}  // namespace

BlockWords ReadBlockWords(const void* block) {
    BlockWords words{};
    static_assert(sizeof words == 8);
    std::memcpy(&words, block, sizeof words);
    return words;
}

unsigned FindFirstWordType(std::uint32_t magic) {
    return FindType(magic, kFirstWordStart, kFirstWordTypes);
}

unsigned FindSecondWordType(std::uint32_t magic) {
    return FindType(magic, kSecondWordStart, kSecondWordTypes);
}

unsigned ClassifyBlock(BlockWords words) {
    const unsigned type = FindFirstWordType(words.first);
    return type != kUserType ? type : FindSecondWordType(words.second);
}
