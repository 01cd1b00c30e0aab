#pragma once

#include <algorithm>
#include <string_view>

/// Letters, digits and blanks as ASCII has them. What the C library says of them follows the locale
/// that the screen is drawn in, where "i" need not be a small "I"; names and numbers that are
/// exchanged with the service and kept in files must not change their meaning with it. No byte of
/// another character is any of these.
namespace Ascii {

constexpr bool IsLower(char character) {
    return character >= 'a' && character <= 'z';
}

constexpr char ToUpper(char character) {
    return IsLower(character) ? static_cast<char>(character - 'a' + 'A') : character;
}

constexpr char ToLower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

/// The blank, and what tabulates, feeds or returns.
constexpr bool IsSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

constexpr bool IsHexDigit(char character) {
    const char upper = ToUpper(character);
    return (upper >= '0' && upper <= '9') || (upper >= 'A' && upper <= 'F');
}

constexpr bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, ToUpper, ToUpper);
}

}  // namespace Ascii
