#include "sim/openFile.h"

#include <algorithm>
#include <cerrno>

namespace sim {

int ReadFromText(std::string_view text, std::span<char> buffer, std::uint64_t offset) {
    if (offset >= text.size()) {
        return 0;
    }
    const std::string_view rest = text.substr(offset, buffer.size());
    std::copy(rest.begin(), rest.end(), buffer.begin());
    return static_cast<int>(rest.size());
}

int TextFile::Write(std::string_view /*bytes*/, std::uint64_t /*offset*/) {
    return -EACCES;
}

}  // namespace sim
