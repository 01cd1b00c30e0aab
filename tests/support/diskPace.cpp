#include "tests/support/diskPace.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace support {

bool DiskPace::Command(std::string_view line) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, blank);
    const std::string_view text = line.substr(std::min(blank + 1, line.size()));
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return false;
    }
    if (word == "latency") {
        latency_ = std::chrono::microseconds(number);
    } else if (word == "bandwidth") {
        bandwidth_ = number;
    } else {
        return false;
    }
    return true;
}

DiskPace::Clock::time_point DiskPace::Take(std::uint64_t bytes, bool oneAtATime) {
    constexpr std::uint64_t kNanosecondsOfAByteAtOneMegabyte = 1000;
    const Clock::time_point now = Clock::now();
    const std::chrono::nanoseconds transfer(
        bandwidth_ == 0 ? 0 : bytes * kNanosecondsOfAByteAtOneMegabyte / bandwidth_);
    const Clock::time_point begin = std::max(now, free_);
    if (oneAtATime) {
        free_ = begin + latency_ + transfer;
        return free_;
    }
    free_ = begin + transfer;
    return std::max(free_, now + latency_);
}

}  // namespace support
