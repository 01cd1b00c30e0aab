#include "util/common/lbpMisc.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "util/common/log.h"

Handle_raii::Handle_raii(const char* path, const char* mode) : stream_(std::fopen(path, mode)) {
    if (stream_ != nullptr) {
        return;
    }
    const char* reason = std::strerror(errno);
    if (std::strchr(mode, 'r') != nullptr) {
        LogLine() << "util/common/lbpMisc[68] Could not open \"" << path << "\" because of \""
                  << reason << "\"\n";
        throw std::runtime_error("Could not open file");
    }
    LogLine() << "util/common/lbpMisc[73] Could not open or create \"" << path << "\" because of \""
              << reason << "\"\n";
    throw std::runtime_error("Could not open/create file");
}
