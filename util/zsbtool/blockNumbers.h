#pragma once

#include <cstdint>
#include <string>

namespace zsbtool {

/// Block numbers from the first to the last, both included.
struct BlockNumbers {
    std::uint64_t first = 0;
    std::uint64_t last = ~std::uint64_t{0};

    bool Hold(std::uint64_t block) const { return block >= first && block <= last; }
};

/// Reads "17". Throws `Failure` for anything else.
std::uint64_t ParseBlockNumber(const std::string& text);

/// Reads "17" or "17-42". Throws `Failure` for anything else.
BlockNumbers ParseBlockNumbers(const std::string& text);

}  // namespace zsbtool
