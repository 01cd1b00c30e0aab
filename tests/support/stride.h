#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace support {

/// A test that tries every byte takes every so many of them instead, where the environment's
/// OSTREL_STRIDE says so: under a sanitizer all would take minutes.
inline std::size_t Stride() {
    const char* told = std::getenv("OSTREL_STRIDE");
    return told == nullptr ? 1 : std::max(std::strtoul(told, nullptr, 10), 1UL);
}

}  // namespace support
