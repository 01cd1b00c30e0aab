#include "tests/support/faultState.h"

#include <cerrno>
#include <charconv>
#include <optional>
#include <system_error>

namespace support {
namespace {

constexpr std::uint64_t kBlockBytes = 4096;
constexpr std::uint64_t kLongestRange = 1U << 20U;

std::optional<std::uint64_t> ParseNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/// Adds "17" or "20-24".
bool AddRange(std::string_view text, std::set<std::uint64_t>& blocks) {
    const std::size_t dash = text.find('-');
    const auto first = ParseNumber(text.substr(0, dash));
    const auto last = dash == text.npos ? first : ParseNumber(text.substr(dash + 1));
    if (!first || !last || *last < *first || *last - *first > kLongestRange) {
        return false;
    }
    for (std::uint64_t block = *first; block <= *last; ++block) {
        blocks.insert(block);
    }
    return true;
}

bool AddList(std::string_view text, std::set<std::uint64_t>& blocks) {
    std::set<std::uint64_t> added;
    std::size_t comma = 0;
    do {
        comma = text.find(',');
        if (!AddRange(text.substr(0, comma), added)) {
            return false;
        }
        text.remove_prefix(comma == text.npos ? text.size() : comma + 1);
    } while (comma != text.npos);
    blocks.merge(added);
    return true;
}

bool Touches(const std::set<std::uint64_t>& blocks, std::uint64_t offset, std::uint64_t bytes) {
    const auto at = blocks.lower_bound(offset / kBlockBytes);
    return bytes > 0 && at != blocks.end() && *at <= (offset + bytes - 1) / kBlockBytes;
}

std::string Line(std::string_view word, const std::set<std::uint64_t>& blocks) {
    std::string line;
    for (const std::uint64_t block : blocks) {
        line += (line.empty() ? std::string(word) + ' ' : ",") + std::to_string(block);
    }
    return line.empty() ? line : line + '\n';
}

}  // namespace

bool FaultState::Command(std::string_view line) {
    const std::size_t blank = line.find(' ');
    const std::string_view word = line.substr(0, blank);
    if (blank != line.npos) {
        const std::string_view list = line.substr(blank + 1);
        return (word == "badread" && AddList(list, badRead_)) ||
               (word == "badwrite" && AddList(list, badWrite_)) ||
               (word == "enospc" && AddList(list, noSpace_)) ||
               (word == "pause" && AddList(list, pause_)) ||
               (word == "cutat" && AddList(list, cutAt_)) || SetNumber(word, list);
    }
    if (word == "readonly") {
        readOnly_ = true;
    } else if (word == "gone") {
        gone_ = true;
    } else if (word == "volatile") {
        volatile_ = true;
    } else if (word == "clear") {
        *this = FaultState();
    } else {
        return false;
    }
    return true;
}

bool FaultState::SetNumber(std::string_view word, std::string_view text) {
    const std::optional<std::uint64_t> number = ParseNumber(text);
    if (number && word == "flaky") {
        flaky_ = number;
    } else if (number && word == "delay") {
        delayMilliseconds_ = *number;
    } else if (number && word == "slowing") {
        slowingMicroseconds_ = *number;
    } else {
        return false;
    }
    return true;
}

int FaultState::Judge(Count& count, int error) {
    ++count.requests;
    count.failed += error != 0 ? 1 : 0;
    return error;
}

/// A flaky block fails a few times, whatever else a request touches.
bool FaultState::ReadFails(std::uint64_t offset, std::uint64_t bytes) {
    if (gone_ || !flaky_) {
        return gone_ || Touches(badRead_, offset, bytes);
    }
    bool fails = false;
    const std::uint64_t last = (offset + bytes - 1) / kBlockBytes;
    for (auto at = badRead_.lower_bound(offset / kBlockBytes); at != badRead_.end() && *at <= last;
         ++at) {
        fails = failures_[*at]++ < *flaky_ || fails;
    }
    return fails;
}

int FaultState::Read(std::uint64_t offset, std::uint64_t bytes) {
    return Judge(reads_, ReadFails(offset, bytes) ? EIO : 0);
}

unsigned FaultState::TakeDelay(bool failed) {
    slowness_ += slowingMicroseconds_;
    return static_cast<unsigned>(slowness_ + (failed ? delayMilliseconds_ * 1000 : 0));
}

int FaultState::Write(std::uint64_t offset, std::uint64_t bytes) {
    if (gone_ || Touches(badWrite_, offset, bytes)) {
        return Judge(writes_, EIO);
    }
    if (readOnly_) {
        return Judge(writes_, EROFS);
    }
    return Judge(writes_, Touches(noSpace_, offset, bytes) ? ENOSPC : 0);
}

bool FaultState::Take(Blocks& blocks, std::uint64_t offset, std::uint64_t bytes) {
    const bool touched = Touches(blocks, offset, bytes);
    if (touched) {
        blocks.erase(blocks.lower_bound(offset / kBlockBytes),
                     blocks.upper_bound((offset + bytes - 1) / kBlockBytes));
    }
    return touched;
}

bool FaultState::TakePause(std::uint64_t offset, std::uint64_t bytes) {
    return Take(pause_, offset, bytes);
}

bool FaultState::TakeCut(std::uint64_t offset, std::uint64_t bytes) {
    return Take(cutAt_, offset, bytes);
}

int FaultState::Other() const {
    return gone_ ? EIO : 0;
}

std::string FaultState::Text() const {
    const auto counts = [](const char* word, const Count& count) {
        return word + std::to_string(count.requests) + " failed " + std::to_string(count.failed) +
               '\n';
    };
    return Line("badread", badRead_) + Line("badwrite", badWrite_) + Line("enospc", noSpace_) +
           Line("pause", pause_) + Line("cutat", cutAt_) + (volatile_ ? "volatile\n" : "") +
           (readOnly_ ? "readonly\n" : "") + (gone_ ? "gone\n" : "") + counts("reads ", reads_) +
           counts("writes ", writes_);
}

}  // namespace support
