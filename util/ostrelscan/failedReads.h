#pragma once

#include <cstdint>

/// Counts the device reads that failed although each of their blocks could then be read: what a
/// dying device shows first.
///
/// A read at the device can be larger than the one that was asked for. The kernel joins blocks into
/// cache pages of up to 2 MiB, each at a multiple of its own size, and a bad block fails every read
/// of its page. So a read is judged by all that may have been read with it: it is not counted when
/// one of those blocks is unreadable, or was not tried behind it.
class FailedReads {
  public:
    /// A read failed at block `first`; `end` is the block behind its last one, and `deviceEnd` that
    /// behind the device's.
    void Failed(std::uint64_t first, std::uint64_t end, std::uint64_t deviceEnd);

    /// A block was read, alone or not, or could not be. A pass tells its blocks in their order.
    void Tried(std::uint64_t block, bool good);

    std::uint64_t RecoveredCount() const { return count_; }
    /// Where the first of those that are counted failed; only where there is one.
    std::uint64_t FirstRecovered() const { return first_; }

  private:
    /// What may have been read at once, and the failed reads in it.
    struct Piece {
        std::uint64_t begin;
        std::uint64_t end;
        std::uint64_t next;         // the block that is to be tried next
        std::uint64_t firstFailed;  // where the first read of it failed
        std::uint64_t reads;
        bool lost;  // a block of it is unreadable
    };

    void Count();

    Piece piece_{};
    std::uint64_t count_ = 0;
    std::uint64_t first_ = 0;
};
