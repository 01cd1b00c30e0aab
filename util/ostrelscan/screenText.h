#pragma once

#include <cstddef>
#include <string_view>

/// A character of a text as the screen shows it.
struct ScreenCharacter {
    wchar_t shown;
    std::size_t bytes;  ///< what it takes of the text, at least one
};

/// The character at the start of a text that is not empty, "?" for what the locale's characters or
/// the screen's cells do not hold. Names from the service and from scan files are UTF-8, whatever
/// the locale is; what is no UTF-8 is read as the locale's, which paths are written in.
ScreenCharacter FirstScreenCharacter(std::string_view text);
