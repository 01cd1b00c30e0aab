#pragma once

#include <cstddef>
#include <string_view>

/// A character of a UTF-8 text.
struct Utf8Character {
    char32_t code;
    std::size_t length;  ///< in bytes; 0 where no character stands
};

/// The character at the start of a text that is not empty. Longer forms than a character needs and
/// the halves of surrogate pairs are none.
Utf8Character FirstUtf8Character(std::string_view text);

/// The text without the character that its end was cut off in, if it was.
std::string_view WithoutTornEnd(std::string_view text);
