#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace support {

/// How fast a disk answers: the time that each request takes beside its bytes, and the bytes that
/// all of them bring in a second. Not locked.
class DiskPace {
  public:
    using Clock = std::chrono::steady_clock;

    /// Takes one line of control text:
    ///   latency 1000    each request takes so many microseconds
    ///   bandwidth 100   all requests together bring so many MB in a second
    /// False if the line is not understood; nothing has changed then.
    bool Command(std::string_view line);

    /// When a request of so many bytes that comes now is answered. One at a time, each begins when
    /// the one before has been answered; otherwise their latencies pass side by side, and only
    /// their bytes come one after the other.
    Clock::time_point Take(std::uint64_t bytes, bool oneAtATime);

  private:
    std::chrono::microseconds latency_{0};
    std::uint64_t bandwidth_ = 0;  // 0 is without a limit
    Clock::time_point free_{};     // when the next request, or its bytes, can begin
};

}  // namespace support
