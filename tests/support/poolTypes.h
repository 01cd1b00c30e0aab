#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace support {

/// What the inside of a block looks like; decides its content, never its type.
enum class Shape : std::uint8_t { Head, Branch, Leaf, Names, Map, Log, File };

struct PoolType {
    std::string_view name;
    std::string_view magic;
    Shape shape;
    unsigned weight;  ///< share among a sample pool's internal blocks
};

/// The block types as a sample pool plants them, in the order of the tool's table. Typed in a
/// second time on purpose: the tool is compared with this table, so it must not come from it.
inline constexpr std::array<PoolType, 41> kPoolTypes{{
    {"ADGD tree", "ADGD", Shape::Branch, 2},
    {"BT branch", "BRCH", Shape::Branch, 6},
    {"BT leaf Z32", "LEAF", Shape::Leaf, 24},
    {"BT leaf Z64", "BtqZ", Shape::Leaf, 24},
    {"BTI branch", "iBbM", Shape::Branch, 2},
    {"BTI leaf", "iBlM", Shape::Leaf, 6},
    {"Checkpoint", "CKP7", Shape::Head, 1},
    {"DBT branch", "DLEF", Shape::Branch, 2},
    {"DBT leaf", "DBRH", Shape::Leaf, 6},
    {"EFL branch", "EBRH", Shape::Branch, 2},
    {"EFL leaf", "ELEF", Shape::Leaf, 10},
    {"EFL log", "ELOG", Shape::Log, 3},
    {"FMAP branch", "PAMB", Shape::Branch, 3},
    {"FMAP leaf", "PAML", Shape::Map, 12},
    {"FMAP root", "PAMR", Shape::Branch, 1},
    {"FT branch", "XBRH", Shape::Branch, 2},
    {"FT leaf", "XLEF", Shape::Leaf, 10},
    {"MFL node", "MFL ", Shape::Names, 3},
    {"MSAP", "PASM", Shape::Map, 3},
    {"NT node", "DirH", Shape::Names, 20},
    {"PT node(old)", "PRGQ", Shape::Leaf, 1},
    {"PT node", "PRG2", Shape::Leaf, 4},
    {"PL node", "PLOG", Shape::Log, 4},
    {"SBH Z32", "SPB5", Shape::Head, 1},
    {"SBH Z64", "SB64", Shape::Head, 1},
    {"SBH(del Z32)", "sbo5", Shape::Head, 1},
    {"SBH(del Z64)", "so64", Shape::Head, 1},
    {"Snap admin", "APNS", Shape::Head, 1},
    {"Snap header", "HPNS", Shape::Head, 1},
    {"Snap map", "MPNS", Shape::Map, 3},
    {"Snap leaf", "LPNS", Shape::Leaf, 3},
    {"UBT branch", "UBRH", Shape::Branch, 2},
    {"UBT leaf", "ULEF", Shape::Leaf, 6},
    {"UBT name", "UNAM", Shape::Names, 6},
    {"PDB", "ZPoo", Shape::Head, 1},
    {"PLDB", "ZPLo", Shape::Log, 2},
    {"VDB", "ZVol", Shape::Head, 1},
    {"VLDB", "ZVLo", Shape::Log, 2},
    {"Zlog", "ZLBH", Shape::Log, 4},
    {"KUVO(New)", "oVUk", Shape::Names, 4},
    {"User", "", Shape::File, 0},
}};

inline constexpr std::size_t kLeafZ32 = 2;
inline constexpr std::size_t kLeafZ64 = 3;
inline constexpr std::size_t kSuperblockZ32 = 23;
inline constexpr std::size_t kSuperblockZ64 = 24;
inline constexpr std::size_t kSecondWordType = 39;
inline constexpr std::size_t kUserType = 40;

}  // namespace support
