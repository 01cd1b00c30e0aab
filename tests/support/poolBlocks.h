#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace support {

inline constexpr std::size_t kBlockBytes = 4096;
inline constexpr std::size_t kRecordBytes = 4104;

/// A block with these bytes at its start and `fill` behind them.
inline std::string MakeBlock(std::string_view start, char fill = '\0') {
    std::string block(kBlockBytes, fill);
    std::ranges::copy(start, block.begin());
    return block;
}

/// A block of noise that no compressor makes smaller.
inline std::string NoiseBlock(unsigned seed) {
    std::mt19937 generator(seed);
    std::string block(kBlockBytes, '\0');
    std::ranges::generate(block, [&generator] { return static_cast<char>(generator()); });
    return block;
}

/// A record as it stands in a scan file.
inline std::string MakeRecord(std::uint64_t number, std::string_view block) {
    std::string record;
    for (unsigned i = 0; i < 8; ++i) {
        record.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
    }
    return record.append(block);
}

inline std::string Join(const std::vector<std::string>& blocks) {
    std::string image;
    for (const std::string& block : blocks) {
        image.append(block);
    }
    return image;
}

}  // namespace support
