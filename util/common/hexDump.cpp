#include "util/common/hexDump.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "util/common/log.h"

namespace {

constexpr int kBytesPerLine = 16;
constexpr std::size_t kLineWidth = 79;
constexpr std::size_t kUnitColumn = 10;
constexpr std::size_t kTextColumn = 60;

/// A unit that the data ends in counts its missing bytes as zero.
std::string UnitText(const unsigned char* bytes, int available, int unit) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes, static_cast<std::size_t>(std::min(available, unit)));
    char text[12] = "";
    std::snprintf(text, sizeof text, "%0*x ", unit * 2, value);
    return text;
}

/// The codes 26 to 31 and 127 stand as they are: readers of old dumps compare them so.
char Shown(unsigned char byte) {
    return byte >= 26 && byte <= 127 ? static_cast<char>(byte) : '.';
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): as the dump is laid out
std::string DumpLine(const unsigned char* bytes, int offset, int count, int unit) {
    std::string line(kLineWidth, ' ');
    char offsetText[12] = "";
    std::snprintf(offsetText, sizeof offsetText, "%08x", static_cast<unsigned>(offset));
    line.replace(0, 8, offsetText);
    std::size_t column = kUnitColumn;
    const auto put = [&line, &column](const std::string& text) {
        line.replace(column, text.size(), text);
        column += text.size();
    };
    for (int at = 0; at < count; at += unit) {
        put(UnitText(bytes + at, count - at, unit));
        if (at + unit == kBytesPerLine / 2) {
            put("| ");
        }
    }
    for (int at = 0; at < count; ++at) {
        line[kTextColumn + static_cast<std::size_t>(at)] = Shown(bytes[at]);
    }
    return line;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
void ZED_HexDump(const void* data, int length, int unit) {
    if (unit != 2 && unit != 4) {
        unit = 1;
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    LogLine dump;
    for (int offset = 0; offset < length; offset += kBytesPerLine) {
        const int count = std::min(length - offset, kBytesPerLine);
        dump << DumpLine(bytes + offset, offset, count, unit) << '\n';
    }
}
