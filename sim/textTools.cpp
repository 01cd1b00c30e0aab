#include "sim/textTools.h"

#include <charconv>

namespace sim {

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    while (true) {
        const auto cut = text.find(separator);
        pieces.emplace_back(text.substr(0, cut));
        if (cut == std::string_view::npos) {
            return pieces;
        }
        text.remove_prefix(cut + 1);
    }
}

std::vector<std::string> SplitWords(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    std::vector<std::string> words;
    while (true) {
        const auto begin = text.find_first_not_of(kBlanks);
        if (begin == std::string_view::npos) {
            return words;
        }
        const auto end = std::min(text.find_first_of(kBlanks, begin), text.size());
        words.emplace_back(text.substr(begin, end - begin));
        text.remove_prefix(end);
    }
}

std::optional<std::uint64_t> ToNumber(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    std::uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

}  // namespace sim
