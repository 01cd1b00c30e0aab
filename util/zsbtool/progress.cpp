#include "util/zsbtool/progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "util/zsbtool/settings.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kPeriod = std::chrono::milliseconds(200);
constexpr unsigned kBarWidth = 24;

/// "59 s", "12:05 min", "3:00:10 h".
std::string DurationText(std::uint64_t seconds) {
    std::array<char, 40> text{};
    const auto part = static_cast<unsigned>(seconds % 60);
    if (seconds < 60) {
        std::snprintf(text.data(), text.size(), "%u s", part);
    } else if (seconds < 3600) {
        std::snprintf(text.data(), text.size(), "%u:%02u min", static_cast<unsigned>(seconds / 60),
                      part);
    } else {
        std::snprintf(text.data(), text.size(), "%llu:%02u:%02u h",
                      static_cast<unsigned long long>(seconds / 3600),
                      static_cast<unsigned>(seconds / 60 % 60), part);
    }
    return text.data();
}

}  // namespace

std::string ProgressLine(const std::string& what, std::uint64_t done, std::uint64_t total,
                         double seconds) {
    const double part =
        total == 0 ? 1 : static_cast<double>(std::min(done, total)) / static_cast<double>(total);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const auto filled = static_cast<unsigned>(part * kBarWidth);
    std::array<char, 8> percent{};
    std::snprintf(percent.data(), percent.size(), "%3u%%", static_cast<unsigned>(part * 100));
    std::string line = what + " [" + std::string(filled, '#') +
                       std::string(kBarWidth - filled, '.') + "] " + percent.data() + "  " +
                       ReadableSize(static_cast<std::uint64_t>(rate)) + "/s";
    if (rate > 0 && done < total) {
        const auto left = static_cast<std::uint64_t>(static_cast<double>(total - done) / rate);
        line += "  " + DurationText(left) + " left";
    }
    return line;
}

Progress::Progress(const Settings& settings, std::string what, std::uint64_t total)
    : what_(std::move(what)),
      total_(total),
      wanted_(!settings.quiet && isatty(STDERR_FILENO) != 0),
      next_(begin_ + kPatience) {}

Progress::~Progress() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void Progress::Add(std::uint64_t bytes) {
    done_ += bytes;
    // Whoever finds another thread at it leaves the line to that.
    if (const std::unique_lock lock(mutex_, std::try_to_lock); wanted_ && lock.owns_lock()) {
        Show(Clock::now());
    }
}

void Progress::Show(Clock::time_point now) {
    if (now < next_) {
        return;
    }
    next_ = now + kPeriod;
    shown_ = true;
    const double seconds = std::chrono::duration<double>(now - begin_).count();
    std::fputs(("\r" + ProgressLine(what_, done_, total_, seconds) + "\x1b[K").c_str(), stderr);
}

}  // namespace zsbtool
