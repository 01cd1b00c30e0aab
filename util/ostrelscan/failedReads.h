#pragma once

#include <cstdint>
#include <vector>

/// Counts the device reads that failed although each of their blocks could then be read by itself:
/// what a dying device shows first. A read is not counted when one of its blocks stays unreadable,
/// or when not all of them were tried.
class FailedReads {
  public:
    /// A read failed at block `first`; `end` is the block behind its last one.
    void Failed(std::uint64_t first, std::uint64_t end);

    /// A block was read by itself, or could not be. The blocks of a read are told in their order;
    /// what is told besides changes nothing.
    void ReadAlone(std::uint64_t block, bool good);

    std::uint64_t RecoveredCount() const { return count_; }
    /// Where the first of those that are counted failed; only where there is one.
    std::uint64_t FirstRecovered() const { return first_; }

  private:
    struct Read {
        std::uint64_t first;
        std::uint64_t next;  // the block that is to be tried next
        std::uint64_t end;
    };

    void Count(const Read& read);

    std::vector<Read> open_;  // neither counted nor lost yet
    std::uint64_t count_ = 0;
    std::uint64_t first_ = 0;
};
