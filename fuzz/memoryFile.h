#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz/property.h"

namespace fuzz {

/// A file without a disk, which can be opened by its path.
class MemoryFile {
  public:
    MemoryFile() : file_(memfd_create("fuzz", MFD_CLOEXEC)) {
        Require(file_ >= 0, "a memory file");
    }
    ~MemoryFile() { close(file_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }
    void Fill(std::string_view bytes) const {
        const bool filled =
            ftruncate(file_, 0) == 0 &&
            pwrite(file_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
        Require(filled, "memory for a file");
    }

  private:
    int file_;
};

}  // namespace fuzz
