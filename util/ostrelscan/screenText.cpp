#include "util/ostrelscan/screenText.h"

#include <wchar.h>
#include <wctype.h>

#include <climits>

#include "util/common/utf8.h"

namespace {

constexpr wchar_t kSubstitute = L'?';

bool LocaleHolds(wchar_t character) {
    char bytes[MB_LEN_MAX];
    mbstate_t start{};
    return wcrtomb(bytes, character, &start) != static_cast<std::size_t>(-1);
}

/// What takes no column of its own must belong to the character before it: all else without a width
/// steers the terminal, and could turn the order of what an operator reads.
bool HasPlace(wint_t character) {
    const int width = wcwidth(static_cast<wchar_t>(character));
    return width > 0 || (width == 0 && (iswalpha(character) != 0 ||
                                        iswctype(character, wctype("combining")) != 0));
}

wchar_t Shown(wint_t character) {
    const auto wide = static_cast<wchar_t>(character);
    const bool can = LocaleHolds(wide) && iswprint(character) != 0 && HasPlace(character);
    return can ? wide : kSubstitute;
}

}  // namespace

ScreenCharacter FirstScreenCharacter(std::string_view text) {
    const Utf8Character utf8 = FirstUtf8Character(text);
    if (utf8.length != 0) {
        return {Shown(utf8.code), utf8.length};
    }
    wchar_t character = 0;
    mbstate_t start{};
    const std::size_t length = mbrtowc(&character, text.data(), text.size(), &start);
    if (length == 0 || length > text.size()) {  // also what marks an error
        return {kSubstitute, 1};
    }
    return {Shown(static_cast<wint_t>(character)), length};
}
