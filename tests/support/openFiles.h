#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace support {

/// This process's descriptors that stand for the file at `path` (absolute).
inline std::vector<int> DescriptorsOf(const std::string& path) {
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == path && !gone) {
            found.push_back(std::stoi(entry.path().filename().string()));
        }
    }
    return found;
}

}  // namespace support
