#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace support {

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// The little-endian number of `width` bytes at an offset.
inline std::uint64_t NumberAt(std::string_view bytes, std::size_t offset, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = width; i-- > 0;) {
        number = number << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    }
    return number;
}

inline std::uint64_t U16At(std::string_view bytes, std::size_t offset) {
    return NumberAt(bytes, offset, 2);
}
inline std::uint64_t U32At(std::string_view bytes, std::size_t offset) {
    return NumberAt(bytes, offset, 4);
}
inline std::uint64_t U64At(std::string_view bytes, std::size_t offset) {
    return NumberAt(bytes, offset, 8);
}

}  // namespace support
