#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace support {

/// Which requests a faulty disk refuses, and how many it has seen. Not locked: the disk serves one
/// request at a time.
class FaultState {
  public:
    /// Takes one line of control text:
    ///   badread 17,20-24   reads that touch these 4096-byte blocks fail with EIO
    ///   badwrite 20        writes to them do
    ///   enospc 30          writes to them fail with ENOSPC
    ///   flaky 1            bad blocks fail so many reads that touch them, and then no more
    ///   delay 50           a request that fails answers after so many milliseconds
    ///   slowing 3          each read answers so many microseconds later than the one before
    ///   volatile           what is written lasts only once it is synced
    ///   readonly           all writes fail with EROFS
    ///   gone               everything fails with EIO
    ///   pause 3000         the disk stands still at the next request that touches them, once each
    ///   cutat 300          the power is cut at the next write that touches them, once each
    ///   clear              nothing fails any more; the counts start again
    /// Blocks add to those already named. False if the line is not understood; nothing has changed
    /// then.
    bool Command(std::string_view line);

    /// The errno of a request, 0 if it may pass. Each call counts as a request.
    int Read(std::uint64_t offset, std::uint64_t bytes);
    int Write(std::uint64_t offset, std::uint64_t bytes);

    /// Whether the disk stands still before this request; its blocks pause no further one.
    bool TakePause(std::uint64_t offset, std::uint64_t bytes);

    /// Whether the power is cut before this write.
    bool TakeCut(std::uint64_t offset, std::uint64_t bytes);

    /// How many microseconds to wait before this read is answered.
    unsigned TakeDelay(bool failed);

    /// Whether what is written is lost unless it is synced.
    [[nodiscard]] bool Volatile() const { return volatile_; }

    /// The errno of everything that is neither read nor write; not counted.
    [[nodiscard]] int Other() const;

    /// The faults in force, as command lines, then "reads N failed N" and "writes N failed N".
    [[nodiscard]] std::string Text() const;

  private:
    using Blocks = std::set<std::uint64_t>;
    struct Count {
        std::uint64_t requests = 0;
        std::uint64_t failed = 0;
    };

    static int Judge(Count& count, int error);
    bool ReadFails(std::uint64_t offset, std::uint64_t bytes);
    static bool Take(Blocks& blocks, std::uint64_t offset, std::uint64_t bytes);
    bool SetNumber(std::string_view word, std::string_view text);

    Blocks badRead_;
    Blocks badWrite_;
    Blocks noSpace_;
    Blocks pause_;
    Blocks cutAt_;
    bool readOnly_ = false;
    bool gone_ = false;
    bool volatile_ = false;
    std::optional<std::uint64_t> flaky_;
    std::map<std::uint64_t, std::uint64_t> failures_;  // of flaky blocks, each one's so far
    std::uint64_t delayMilliseconds_ = 0;
    std::uint64_t slowingMicroseconds_ = 0;
    std::uint64_t slowness_ = 0;
    Count reads_;
    Count writes_;
};

}  // namespace support
