#include "sim/controlArguments.h"

#include <algorithm>
#include <charconv>

#include "sim/textTools.h"

namespace sim {
namespace {

bool TakesValue(const std::string& option) {
    return option != "--forced" && option != "--wait";
}

}  // namespace

ControlArguments::ControlArguments(const std::vector<std::string>& words) {
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (!word->starts_with("--")) {
            words_.push_back(*word);
        } else if (!TakesValue(*word)) {
            options_[*word] = "";
        } else if (std::next(word) == words.end()) {
            throw UsageError("the option " + *word + " needs a value");
        } else {
            const std::string& option = *word;
            options_[option] = *++word;
        }
    }
}

const std::string& ControlArguments::Word(std::size_t index) const {
    if (index >= words_.size()) {
        throw UsageError("something is missing at the end");
    }
    return words_[index];
}

std::string ControlArguments::WordOr(std::size_t index, const std::string& other) const {
    return index < words_.size() ? words_[index] : other;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): which, and what without it
std::string ControlArguments::Option(const std::string& option, const std::string& other) const {
    const auto found = options_.find(option);
    return found == options_.end() ? other : found->second;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): which, and what without it
std::uint64_t ControlArguments::Number(const std::string& option, std::uint64_t other,
                                       std::uint64_t largest) const {
    if (!Has(option)) {
        return other;
    }
    const auto number = ToNumber(options_.at(option));
    if (!number || *number > largest) {
        throw UsageError("\"" + options_.at(option) + "\" is no value for " + option);
    }
    return *number;
}

BusHub::Timeout ControlArguments::Timeout() const {
    if (!Has("--timeout")) {
        return std::nullopt;
    }
    const std::string& text = options_.at("--timeout");
    double seconds = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || !(seconds >= 0) ||
        seconds > 86400) {
        throw UsageError("\"" + text + "\" is no time in seconds");
    }
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

void ControlArguments::Expect(std::size_t least, std::size_t most,
                              const std::vector<std::string>& known) const {
    if (words_.size() < least || words_.size() > most) {
        throw UsageError(words_.size() < least ? "something is missing at the end"
                                               : "\"" + words_[most] + "\" is too much");
    }
    for (const auto& entry : options_) {
        if (std::find(known.begin(), known.end(), entry.first) == known.end()) {
            throw UsageError("there is no option " + entry.first + " here");
        }
    }
}

}  // namespace sim
