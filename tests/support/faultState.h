#pragma once

#include <cstdint>
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
    ///   readonly           all writes fail with EROFS
    ///   gone               everything fails with EIO
    ///   pause 3000         the disk stands still at the next request that touches them, once each
    ///   clear              nothing fails any more; the counts start again
    /// Blocks add to those already named. False if the line is not understood; nothing has changed
    /// then.
    bool Command(std::string_view line);

    /// The errno of a request, 0 if it may pass. Each call counts as a request.
    int Read(std::uint64_t offset, std::uint64_t bytes);
    int Write(std::uint64_t offset, std::uint64_t bytes);

    /// Whether the disk stands still before this request; its blocks pause no further one.
    bool TakePause(std::uint64_t offset, std::uint64_t bytes);

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

    Blocks badRead_;
    Blocks badWrite_;
    Blocks noSpace_;
    Blocks pause_;
    bool readOnly_ = false;
    bool gone_ = false;
    Count reads_;
    Count writes_;
};

}  // namespace support
