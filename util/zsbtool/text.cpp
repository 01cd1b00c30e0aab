#include "util/zsbtool/text.h"

#include <wchar.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "util/common/guid.h"
#include "util/common/utf8.h"

namespace zsbtool {

namespace {

/// Controls of both sets, and what turns the direction of writing.
bool Steers(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x200E && code <= 0x200F) ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

void AppendEscaped(std::string& out, std::string_view bytes) {
    for (const char byte : bytes) {
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(byte));
        out += escape.data();
    }
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const Utf8Character character = FirstUtf8Character(text);
        const std::string_view bytes = text.substr(0, character.length == 0 ? 1 : character.length);
        if (character.length == 0 || Steers(character.code)) {
            AppendEscaped(out, bytes);
        } else {
            out += bytes;
        }
        text.remove_prefix(bytes.size());
    }
    return out;
}

std::size_t DisplayWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Utf8Character character = FirstUtf8Character(text);
        const int columns = wcwidth(static_cast<wchar_t>(character.code));
        width += columns < 0 || character.length == 0 ? 1 : static_cast<std::size_t>(columns);
        text.remove_prefix(character.length == 0 ? 1 : character.length);
    }
    return width;
}

std::string ReadableSize(std::uint64_t bytes) {
    constexpr std::array<const char*, 7> kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    // 1023.95 would be shown as 1024.0.
    for (; size >= 1023.95 && unit + 1 < kUnits.size(); ++unit) {
        size /= 1024;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", size, kUnits[unit]);
    return text.data();
}

std::string Counted(std::uint64_t count, std::string_view what) {
    return std::to_string(count) + ' ' + std::string(what) + (count == 1 ? "" : "s");
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::string TimeText(std::uint64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (gmtime_r(&time, &parts) == nullptr) {
        return std::to_string(seconds);
    }
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::string GuidText(const GUID_t& guid) {
    std::array<char, Ostrel::kGUIDTextLength + 1> text{};
    Ostrel::LB_GUIDToString(&guid, static_cast<unsigned>(text.size()), text.data());
    return text.data();
}

}  // namespace zsbtool
