#include "util/ostrelscan/deviceCache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr unsigned kPieceShift = 20;
/// The system may cut a larger request to what its queue takes at once.
constexpr std::uint64_t kRequest = 128 << 10;
/// A piece that took longer was waited for: what keeps up delivers it in half that time.
constexpr std::chrono::microseconds kSlow(500);
/// One late piece alone may be another process's turn on the processor.
constexpr unsigned kSlowInARow = 3;
/// How many pieces a wait, or a failure, is remembered for.
constexpr std::uint64_t kMemory = 64;

off64_t Offset(std::uint64_t piece) {
    return static_cast<off64_t>(piece << kPieceShift);
}

/// Whether the page in the middle of a piece is cached. Also where that is not to be had.
bool IsCached(int descriptor, std::uint64_t piece) {
    const auto size = static_cast<std::size_t>(getpagesize());
    const off64_t middle = Offset(piece) + (off64_t{1} << (kPieceShift - 1));
    void* page = mmap64(nullptr, size, PROT_READ, MAP_SHARED, descriptor, middle);
    if (page == MAP_FAILED) {
        return true;
    }
    unsigned char resident = 1;
    mincore(page, size, &resident);
    munmap(page, size);
    return (resident & 1U) != 0;
}

}  // namespace

void DeviceCache::Begin(int descriptor) {
    *this = {};
    descriptor_ = descriptor;
}

void DeviceCache::WillRead(std::uint64_t offset) {
    const std::uint64_t piece = offset >> kPieceShift;
    if (!begun_ || piece != piece_) {
        Enter(piece);
    }
}

void DeviceCache::HaveRead(std::chrono::steady_clock::duration time) {
    time_ += time;
}

void DeviceCache::HaveFailed() {
    askUntil_ = 0;
    calmUntil_ = piece_ + kMemory;
}

void DeviceCache::Enter(std::uint64_t piece) {
    const bool next = begun_ && piece == piece_ + 1;
    slow_ = next && time_ > kSlow ? slow_ + 1 : 0;
    if (slow_ >= kSlowInARow && piece >= calmUntil_) {
        askUntil_ = piece + kMemory;
    }
    for (std::uint64_t near = next ? piece + kLookedAhead : piece; near <= piece + kLookedAhead;
         ++near) {
        Look(near);
    }
    if (next) {
        Forget(piece_);
        Ask(piece);
    } else {
        asked_ = askUntil_ = 0;
    }
    begun_ = true;
    piece_ = piece;
    time_ = {};
}

void DeviceCache::Look(std::uint64_t piece) {
    ours_[piece % ours_.size()] = !IsCached(descriptor_, piece);
}

void DeviceCache::Ask(std::uint64_t piece) {
    if (piece >= askUntil_) {
        return;
    }
    asked_ = std::max(asked_, piece);
    for (; asked_ <= piece + kAskedAhead; ++asked_) {
        for (std::uint64_t part = 0; part < std::uint64_t{1} << kPieceShift; part += kRequest) {
            posix_fadvise64(descriptor_, Offset(asked_) + static_cast<off64_t>(part), kRequest,
                            POSIX_FADV_WILLNEED);
        }
    }
}

void DeviceCache::Forget(std::uint64_t piece) {
    if (ours_[piece % ours_.size()]) {
        posix_fadvise64(descriptor_, Offset(piece), Offset(1), POSIX_FADV_DONTNEED);
    }
}
