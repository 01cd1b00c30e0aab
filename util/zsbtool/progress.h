#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace zsbtool {

struct Settings;

/// One line that shows how far a work has come: part, rate and time left. `seconds` is what it took
/// so far.
std::string ProgressLine(const std::string& what, std::uint64_t done, std::uint64_t total,
                         double seconds);

/// Shows that line on standard error from the second on that a work takes, a few times a second,
/// and wipes it at its end; only when that is a terminal, and not with `--quiet`.
class Progress {
  public:
    /// `total` bytes are to be worked on.
    Progress(const Settings& settings, std::string what, std::uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many bytes more are done. Called by any thread.
    void Add(std::uint64_t bytes);

  private:
    using Clock = std::chrono::steady_clock;

    void Show(Clock::time_point now);

    const std::string what_;
    const std::uint64_t total_;
    const bool wanted_;
    const Clock::time_point begin_ = Clock::now();
    std::atomic<std::uint64_t> done_ = 0;
    std::mutex mutex_;  // of what stands below
    Clock::time_point next_;
    bool shown_ = false;
};

}  // namespace zsbtool
