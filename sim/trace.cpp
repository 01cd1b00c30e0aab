#include "sim/trace.h"

#include <array>
#include <cstdio>

namespace sim {
namespace {

std::string OnOneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        if (c == '\n') {
            line += "\\n";
        } else {
            line += c;
        }
    }
    return line;
}

}  // namespace

void Trace::Add(std::string_view what, std::string_view text) {
    constexpr std::size_t kKept = 20000;
    const std::scoped_lock lock(mutex_);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    std::array<char, 40> stamp{};
    std::snprintf(stamp.data(), stamp.size(), "%10.3f ", elapsed.count());
    lines_.push_back(stamp.data() + std::string(what) + ": " + OnOneLine(text));
    if (lines_.size() > kKept) {
        lines_.pop_front();
    }
}

std::vector<std::string> Trace::Lines() const {
    const std::scoped_lock lock(mutex_);
    return {lines_.begin(), lines_.end()};
}

}  // namespace sim
