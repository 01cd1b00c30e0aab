#include "tests/support/unsyncedWrites.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>

namespace support {
namespace {

constexpr std::uint64_t kPageBytes = 4096;

}  // namespace

void UnsyncedWrites::Add(std::uint64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t piece =
            std::min<std::size_t>(kPageBytes - offset % kPageBytes, bytes.size());
        pieces_.push_back({offset, std::string(bytes.substr(0, piece))});
        bytes.remove_prefix(piece);
        offset += piece;
    }
}

void UnsyncedWrites::LayOver(std::uint64_t offset, std::span<char> bytes) const {
    for (const Piece& piece : pieces_) {
        const std::uint64_t from = std::max(offset, piece.offset);
        const std::uint64_t end =
            std::min(offset + bytes.size(), piece.offset + piece.bytes.size());
        if (from < end) {
            piece.bytes.copy(bytes.data() + (from - offset), end - from, from - piece.offset);
        }
    }
}

int UnsyncedWrites::Store(int image) {
    for (const Piece& piece : pieces_) {
        if (pwrite(image, piece.bytes.data(), piece.bytes.size(),
                   static_cast<off_t>(piece.offset)) != static_cast<ssize_t>(piece.bytes.size())) {
            return errno;
        }
    }
    pieces_.clear();
    return 0;
}

int UnsyncedWrites::Cut(int image, unsigned seed) {
    std::minstd_rand chance(seed);
    std::erase_if(pieces_, [&](const Piece&) { return chance() % 2 == 0; });
    return Store(image);
}

}  // namespace support
