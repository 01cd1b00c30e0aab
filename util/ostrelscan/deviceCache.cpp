#include "util/ostrelscan/deviceCache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>

namespace {

constexpr unsigned kPieceShift = 20;
/// What every device takes at once.
constexpr std::uint64_t kSmallRequest = 128 << 10;
/// What is asked for comes into single pages, of which a request takes 128 as a rule. What is read
/// may come into larger ones, so that a device that takes more at once can lose by being asked.
constexpr std::uint64_t kAskedRequest = 512 << 10;
/// A piece that took longer was waited for: what keeps up delivers it in half that time.
constexpr std::chrono::microseconds kSlow(500);
/// One late piece alone may be another process's turn on the processor.
constexpr unsigned kSample = 3;
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

void DeviceCache::Begin(int descriptor, std::uint64_t request) {
    *this = {};
    descriptor_ = descriptor;
    request_ = std::clamp(std::bit_floor(request), kSmallRequest, std::uint64_t{1} << kPieceShift);
}

void DeviceCache::WillRead(std::uint64_t offset) {
    const std::uint64_t piece = offset >> kPieceShift;
    if (descriptor_ >= 0 && (!begun_ || piece != piece_)) {
        Enter(piece);
    }
}

void DeviceCache::HaveRead(std::chrono::steady_clock::duration time) {
    time_ += time;
}

void DeviceCache::HaveFailed() {
    StopWaiting();
    calmUntil_ = piece_ + kMemory;
}

void DeviceCache::StopWaiting() {
    waitsUntil_ = askUntil_ = 0;
    trying_ = false;
}

void DeviceCache::Enter(std::uint64_t piece) {
    const bool next = begun_ && piece == piece_ + 1;
    for (std::uint64_t near = next ? piece + kLookedAhead : piece; near <= piece + kLookedAhead;
         ++near) {
        Look(near);
    }
    if (next) {
        Forget(piece_);
        Judge(piece);
    } else {
        StopWaiting();
        asked_ = 0;
    }
    begun_ = true;
    piece_ = piece;
    time_ = {};
}

/// Makes of the time that the last piece has taken how the next ones are read.
void DeviceCache::Judge(std::uint64_t piece) {
    const bool slow = time_ > kSlow && piece >= calmUntil_;
    const bool waited = piece < waitsUntil_;
    if (slow) {
        waitsUntil_ = piece + kMemory;
    }
    const bool waits = slow && waited;
    if (waits && request_ <= kAskedRequest) {
        askUntil_ = piece + kMemory;
    }
    if (piece < askUntil_) {
        Ask(piece, piece + kAskedAhead);
    } else if (trying_ || waits) {
        sum_ += time_;
        if (++sampled_ == kSample) {
            Conclude(piece);
        }
    } else {
        sampled_ = 0;
    }
    if (sampled_ == 0) {
        sum_ = {};
    }
}

/// Compares pieces that were asked for at once with as many that were not.
void DeviceCache::Conclude(std::uint64_t piece) {
    sampled_ = 0;
    if (!trying_) {
        plain_ = sum_;
        trying_ = piece >= triedUntil_;
        if (trying_) {
            Ask(piece, piece + kSample - 1);
        }
        return;
    }
    trying_ = false;
    if (3 * sum_ < 2 * plain_) {
        askUntil_ = piece + kMemory;
        trialPause_ = kFirstPause;
        Ask(piece, piece + kAskedAhead);
    } else {
        triedUntil_ = piece + trialPause_;
        trialPause_ *= 2;
    }
}

void DeviceCache::Look(std::uint64_t piece) {
    ours_[piece % ours_.size()] = !IsCached(descriptor_, piece);
}

/// Asks for the pieces up to the last one that were not asked for yet.
void DeviceCache::Ask(std::uint64_t piece, std::uint64_t last) {
    for (asked_ = std::max(asked_, piece); asked_ <= last; ++asked_) {
        for (std::uint64_t part = 0; part < std::uint64_t{1} << kPieceShift; part += request_) {
            posix_fadvise64(descriptor_, Offset(asked_) + static_cast<off64_t>(part),
                            static_cast<off64_t>(request_), POSIX_FADV_WILLNEED);
        }
    }
}

void DeviceCache::Forget(std::uint64_t piece) {
    if (ours_[piece % ours_.size()]) {
        posix_fadvise64(descriptor_, Offset(piece), Offset(1), POSIX_FADV_DONTNEED);
    }
}
