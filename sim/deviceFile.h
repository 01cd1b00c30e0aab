#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/openFile.h"

namespace sim {

/// A run of bad blocks, first and last included, and what fails on it.
struct BadBlocks {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    bool failReads = true;
    bool failWrites = true;
};

/// Reads a list such as "5,7-9"; empty when a piece of it is no block or range of blocks.
std::vector<BadBlocks> BadBlocksFromText(const std::string& list, bool failReads, bool failWrites);

/// The image of a pool, passed through, with blocks of 4096 bytes that fail with EIO.
class DeviceFile : public OpenFile {
  public:
    /// Opens an image file or a block device, for reading alone when it cannot be written;
    /// null with errno set when it cannot be opened.
    static std::shared_ptr<DeviceFile> Open(const std::string& path);

    /// Takes an open descriptor over, of a file of `size` bytes.
    DeviceFile(int descriptor, std::uint64_t size) : descriptor_(descriptor), size_(size) {}
    ~DeviceFile() override;

    int Read(std::span<char> buffer, std::uint64_t offset) override;
    int Write(std::string_view bytes, std::uint64_t offset) override;
    int Sync() override;
    std::optional<std::uint64_t> DeviceSize() const override { return size_; }

    /// Replaces the bad blocks, for reads and writes from now on. Any thread may call it.
    void SetBadBlocks(std::vector<BadBlocks> bad);
    /// The bad blocks of this moment.
    std::vector<BadBlocks> Bad() const;

  private:
    bool Fails(std::uint64_t offset, std::uint64_t length, bool writing) const;

    const int descriptor_;
    const std::uint64_t size_;
    mutable std::mutex mutex_;
    std::vector<BadBlocks> bad_;
};

}  // namespace sim
