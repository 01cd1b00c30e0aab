#include "util/zsbtool/shellQuoting.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789@%+=:,./-_";

/// Quotes that know escapes, for bytes that cannot be shown.
std::string WithEscapes(std::string_view text) {
    std::string quoted = "$'";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < ' ' || byte >= 0x7f) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\%03o", byte);
            quoted += escape.data();
        } else {
            quoted += character == '\'' || character == '\\' ? "\\" : "";
            quoted += character;
        }
    }
    return quoted + "'";
}

}  // namespace

std::string ShellQuoted(std::string_view text) {
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos) {
        return std::string(text);
    }
    if (Printable(text) != text) {
        return WithEscapes(text);
    }
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? R"('\'')" : std::string(1, character);
    }
    return quoted + "'";
}

}  // namespace zsbtool
