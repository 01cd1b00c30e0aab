#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What the service saw and did, in order: every exchange, registration, event and answer. Any
/// thread may add to it; it keeps the last 20,000 lines.
class Trace {
  public:
    /// Adds one line: seconds since the start, what it is, and the text on one line.
    void Add(std::string_view what, std::string_view text);

    /// The kept lines, oldest first.
    std::vector<std::string> Lines() const;

  private:
    mutable std::mutex mutex_;
    std::deque<std::string> lines_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace sim
