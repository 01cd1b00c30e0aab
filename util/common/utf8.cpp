#include "util/common/utf8.h"

#include <array>

namespace {

/// How many bytes a character has that starts with this byte; 0 when none does.
std::size_t SequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2) {
        return 0;
    }
    if (lead < 0xE0) {
        return 2;
    }
    if (lead < 0xF0) {
        return 3;
    }
    return lead < 0xF5 ? 4 : 0;
}

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

bool IsLegal(const Utf8Character& character) {
    constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character.code >= 0xD800 && character.code <= 0xDFFF;
    return character.code >= kSmallest[character.length] && character.code <= 0x10FFFF &&
           !surrogate;
}

}  // namespace

Utf8Character FirstUtf8Character(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = SequenceLength(lead);
    if (length == 0 || length > text.size()) {
        return {0, 0};
    }
    Utf8Character character{length == 1 ? lead : lead & (0x7FU >> length), length};
    for (const char next : text.substr(1, length - 1)) {
        if (!IsContinuation(next)) {
            return {0, 0};
        }
        character.code = character.code << 6 | (static_cast<unsigned char>(next) & 0x3FU);
    }
    return IsLegal(character) ? character : Utf8Character{0, 0};
}

std::string_view WithoutTornEnd(std::string_view text) {
    std::size_t behind = 0;  // bytes behind the last one that may lead a character
    while (behind < 3 && behind < text.size() && IsContinuation(text[text.size() - 1 - behind])) {
        ++behind;
    }
    if (behind == text.size()) {
        return text;
    }
    const std::size_t last = text.size() - 1 - behind;
    const bool torn = SequenceLength(static_cast<unsigned char>(text[last])) > behind + 1;
    return torn ? text.substr(0, last) : text;
}
