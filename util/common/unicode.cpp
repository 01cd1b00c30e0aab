#include "util/common/unicode.h"

#include <ostream>

int LB_unicmp(const char16_t* a, const char16_t* b) {
    if (a == b) {
        return 0;
    }
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return static_cast<int>(*a) - static_cast<int>(*b);
}

char16_t* LB_unicpy(char16_t* destination, const char16_t* source) {
    for (char16_t* to = destination; (*to = *source) != 0; ++to) {
        ++source;
    }
    return destination;
}

namespace Ostrel {

void uni2utf(const char16_t* source, std::string& out) {
    if (source == nullptr) {
        return;
    }
    const auto append = [&out](unsigned byte) { out.push_back(static_cast<char>(byte)); };
    for (; *source != 0; ++source) {
        const unsigned unit = *source;
        if (unit < 0x80) {
            append(unit);
        } else if (unit < 0x800) {
            append(0xC0U | unit >> 6);
            append(0x80U | (unit & 0x3F));
        } else {
            append(0xE0U | unit >> 12);
            append(0x80U | (unit >> 6 & 0x3F));
            append(0x80U | (unit & 0x3F));
        }
    }
}

}  // namespace Ostrel

std::ostream& operator<<(std::ostream& stream, const UnicodeString& text) {
    return stream << text.utf8_;
}
