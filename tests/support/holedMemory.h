#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/poolBlocks.h"

namespace support {

/// A device with bad blocks without any device: this process's memory as the system shows it, in
/// which reading a block with nothing behind it fails with EIO. It begins where a stretch of 64
/// blocks does.
class HoledMemory {
  public:
    static constexpr const char* kPath = "/proc/self/mem";
    static constexpr int kReadError = 5;

    explicit HoledMemory(std::size_t blocks) : blocks_(blocks) {
        const std::size_t size = (blocks + kAlign) * kBlockBytes;
        start_ = static_cast<char*>(
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        const std::size_t past = BlockOf(start_) % kAlign;
        const std::size_t skipped = past == 0 ? 0 : kAlign - past;
        munmap(start_, skipped * kBlockBytes);
        start_ += skipped * kBlockBytes;
        mapped_ = blocks + kAlign - skipped;
    }
    ~HoledMemory() { munmap(start_, mapped_ * kBlockBytes); }
    HoledMemory(const HoledMemory&) = delete;
    HoledMemory& operator=(const HoledMemory&) = delete;

    /// The number, on the device, of the block at this index.
    std::uint64_t Number(std::size_t index) const { return BlockOf(start_) + index; }
    std::uint64_t LastNumber() const { return Number(blocks_ - 1); }

    void Put(std::size_t index, const std::string& block) {
        std::memcpy(start_ + index * kBlockBytes, block.data(), kBlockBytes);
    }
    /// A mapping of nothing: nobody can read it, and nobody else gets its place.
    void MakeBad(std::size_t index) {
        const int empty = memfd_create("empty", MFD_CLOEXEC);
        mmap(start_ + index * kBlockBytes, kBlockBytes, PROT_READ, MAP_SHARED | MAP_FIXED, empty,
             0);
        close(empty);
    }

  private:
    static constexpr std::size_t kAlign = 64;

    static std::uint64_t BlockOf(const char* at) {
        return reinterpret_cast<std::uintptr_t>(at) / kBlockBytes;
    }

    std::size_t blocks_;
    char* start_;
    std::size_t mapped_;
};

}  // namespace support
