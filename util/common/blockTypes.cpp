#include "util/common/blockTypes.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "pool words are read in memory order");

namespace {

/// The rows of the table that one word of a block is compared with.
struct Group {
    unsigned start;
    unsigned count;
};

unsigned FindType(std::uint32_t magic, Group group) {
    for (unsigned index = group.start; index < group.start + group.count; ++index) {
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
    return FindType(magic, {kFirstWordStart, kFirstWordTypes});
}

unsigned FindSecondWordType(std::uint32_t magic) {
    return FindType(magic, {kSecondWordStart, kSecondWordTypes});
}

unsigned ClassifyBlock(BlockWords words) {
    const unsigned type = FindFirstWordType(words.first);
    return type != kUserType ? type : FindSecondWordType(words.second);
}
