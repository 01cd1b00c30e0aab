#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// What was written to a disk and is not yet synced: when the power is cut, any part of it is lost.
/// Not locked: the disk serves one request at a time.
class UnsyncedWrites {
  public:
    /// Keeps a write, block by block.
    void Add(std::uint64_t offset, std::string_view bytes);

    /// Lays what is kept over bytes that were read from the image at an offset.
    void LayOver(std::uint64_t offset, std::span<char> bytes) const;

    /// Writes everything to the image. 0 or an errno.
    int Store(int image);

    /// Writes some of it to the image, as the seed has it, and loses the rest. 0 or an errno.
    int Cut(int image, unsigned seed);

    /// How many blocks are kept.
    std::size_t Count() const { return pieces_.size(); }

  private:
    struct Piece {
        std::uint64_t offset;
        std::string bytes;
    };

    std::vector<Piece> pieces_;  // in the order in which they were written
};

}  // namespace support
