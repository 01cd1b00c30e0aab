#include "sim/guidText.h"

#include <cctype>
#include <charconv>

namespace sim {
namespace {

// Where the bytes of the text stand in memory: the first three numbers are little-endian there.
constexpr std::array<std::size_t, 16> kTextToMemory = {3, 2, 1,  0,  5,  4,  7,  6,
                                                       8, 9, 10, 11, 12, 13, 14, 15};

bool IsDashAt(std::size_t position, std::size_t length) {
    const bool common = position == 8 || position == 13 || position == 18;
    return common || (length == 36 ? position == 23 : position == 21 || position == 24);
}

// The digits without their dashes, or an empty text when a dash or a digit is out of place.
std::string DigitsOf(std::string_view text) {
    std::string digits;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsDashAt(i, text.size())) {
            if (text[i] != '-') {
                return {};
            }
        } else if (std::isxdigit(static_cast<unsigned char>(text[i])) == 0) {
            return {};
        } else {
            digits += text[i];
        }
    }
    return digits;
}

std::uint64_t Mix(std::string_view text, std::uint64_t hash) {
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
    }
    return hash;
}

}  // namespace

std::optional<Guid> GuidFromText(std::string_view text) {
    if (text.size() != 36 && text.size() != 37) {
        return std::nullopt;
    }
    const std::string digits = DigitsOf(text);
    if (digits.size() != 32) {
        return std::nullopt;
    }
    Guid guid{};
    for (std::size_t i = 0; i < guid.size(); ++i) {
        const char* pair = digits.data() + 2 * i;
        std::from_chars(pair, pair + 2, guid.at(kTextToMemory.at(i)), 16);
    }
    return guid;
}

std::string TextOfGuid(const Guid& guid) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < guid.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 9 || i == 10) {
            text += '-';
        }
        const unsigned byte = guid.at(kTextToMemory.at(i));
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

Guid GuidFromName(std::string_view name) {
    const std::uint64_t low = Mix(name, 0xCBF29CE484222325ULL);
    const std::uint64_t high = Mix(name, low);
    Guid guid{};
    for (std::size_t i = 0; i < guid.size(); ++i) {
        guid.at(i) = static_cast<std::uint8_t>((i < 8 ? low : high) >> (8 * (i % 8)));
    }
    // The marks of a generated GUID.
    guid[7] &= 0x0F;
    guid[8] = static_cast<std::uint8_t>((guid[8] & 0x3F) | 0x80);
    return guid;
}

}  // namespace sim
