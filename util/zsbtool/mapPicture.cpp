#include "util/zsbtool/mapPicture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanSetMap.h"
#include "util/zsbtool/output.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::size_t kTextColumns = 64;
constexpr std::size_t kSvgColumns = 128;
constexpr std::size_t kCellWidth = 8;
constexpr std::size_t kCellHeight = 10;
constexpr std::size_t kLegendColumns = 4;
constexpr std::size_t kLegendLine = 20;
constexpr std::size_t kMargin = 8;
constexpr std::size_t kWidth = kSvgColumns * kCellWidth + 2 * kMargin;

/// One letter for each type, the same in every map.
constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmno";
static_assert(kLetters.size() == kBlockTypeCount);

struct Colour {
    unsigned red;
    unsigned green;
    unsigned blue;
};

/// A type's colour, the same in every map: neighbours in the table are far apart in hue, and blocks
/// of no known type are grey.
Colour ColourOf(unsigned type) {
    if (type == kUserType) {
        return {0x99, 0x99, 0x99};
    }
    constexpr unsigned kHues = kBlockTypeCount - 1;
    constexpr unsigned kStep = 7;  // prime to that, so that no hue comes twice
    const unsigned place = type * kStep % kHues;
    const double hue = 360.0 * place / kHues;
    const double lightness = 0.40 + 0.13 * (place % 3);
    const double range = 0.65 * std::min(lightness, 1 - lightness);
    const auto part = [&](double shift) {
        const double at = std::fmod(shift + hue / 30, 12.0);
        const double level = std::max(-1.0, std::min({at - 3, 9 - at, 1.0}));
        return static_cast<unsigned>(std::lround(255 * (lightness - range * level)));
    };
    return {part(0), part(8), part(4)};
}

/// As terminals of 256 colours number them.
unsigned TerminalColour(const Colour& colour) {
    const auto step = [](unsigned level) { return (level * 5 + 127) / 255; };
    return 16 + 36 * step(colour.red) + 6 * step(colour.green) + step(colour.blue);
}

std::string HexOf(const Colour& colour) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "#%02x%02x%02x", colour.red & 0xFF, colour.green & 0xFF,
                  colour.blue & 0xFF);
    return text.data();
}

/// The types that are there, in the order of the table.
std::vector<unsigned> TypesIn(const ScanSetMap& map) {
    std::vector<unsigned> types;
    for (unsigned type = 0; type < kBlockTypeCount; ++type) {
        if (map.Count(type) != 0) {
            types.push_back(type);
        }
    }
    return types;
}

std::string Right(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string Attribute(const char* name, std::size_t value) {
    return std::string(" ") + name + "=\"" + std::to_string(value) + '"';
}

/// Cells next to each other in one row, all of one type or all empty.
struct Stretch {
    std::size_t first;
    std::size_t cells;
    std::optional<unsigned> type;
};

std::vector<Stretch> StretchesOf(const ScanSetMap& map) {
    std::vector<Stretch> stretches;
    for (std::size_t cell = 0; cell < map.Cells(); ++cell) {
        const std::optional<unsigned> type = map.TypeOf(cell);
        if (cell % kSvgColumns == 0 || stretches.back().type != type) {
            stretches.push_back({cell, 0, type});
        }
        stretches.back().cells += 1;
    }
    return stretches;
}

std::string BlocksOf(const ScanSetMap& map, const Stretch& stretch) {
    const std::uint64_t first = stretch.first * map.BlocksPerCell();
    const std::uint64_t behind = (stretch.first + stretch.cells) * map.BlocksPerCell();
    return "blocks " + std::to_string(first) + " to " +
           std::to_string(std::min(behind, map.PoolBlocks()) - 1);
}

std::string DrawStretch(const ScanSetMap& map, const Stretch& stretch) {
    std::string text =
        "<rect" + Attribute("x", kMargin + stretch.first % kSvgColumns * kCellWidth) +
        Attribute("y", kMargin + stretch.first / kSvgColumns * kCellHeight) +
        Attribute("width", stretch.cells * kCellWidth) + Attribute("height", kCellHeight - 1);
    text += stretch.type ? " fill=\"" + HexOf(ColourOf(*stretch.type)) + '"'
                         : std::string(" class=\"map-empty\"");
    const char* name = stretch.type ? kBlockTypes[*stretch.type].name : "nothing";
    return text + "><title>" + BlocksOf(map, stretch) + ": " + name + "</title></rect>\n";
}

/// One entry of the legend; `place` counts from its first.
std::string DrawLegend(const ScanSetMap& map, unsigned type, std::size_t place, std::size_t top) {
    const std::size_t x = kMargin + place % kLegendColumns * (kWidth / kLegendColumns);
    const std::size_t y = top + place / kLegendColumns * kLegendLine;
    return "<rect" + Attribute("x", x) + Attribute("y", y) + Attribute("width", 12) +
           Attribute("height", 12) + " fill=\"" + HexOf(ColourOf(type)) + "\"/><text" +
           Attribute("x", x + 18) + Attribute("y", y + 11) + '>' + kBlockTypes[type].name + ": " +
           std::to_string(map.Count(type)) + "</text>\n";
}

constexpr const char* kStyle =
    "<style>.map-ground{fill:#fff}.map-empty{fill:#e6e6e6}"
    ".map text{font:13px sans-serif;fill:#222}"
    "@media(prefers-color-scheme:dark){.map-ground{fill:#1b1b1b}.map-empty{fill:#333}"
    ".map text{fill:#ddd}}</style>\n";

}  // namespace

void PutMap(Output& out, const Painter& paint, const ScanSetMap& map) {
    for (std::size_t cell = 0; cell < map.Cells(); ++cell) {
        if (cell % kTextColumns == 0) {
            out << (cell == 0 ? "" : "\n") << Right(std::to_string(cell * map.BlocksPerCell()), 12)
                << "  ";
        }
        const std::optional<unsigned> type = map.TypeOf(cell);
        out << (type ? paint.InColour(TerminalColour(ColourOf(*type)),
                                      std::string(1, kLetters[*type]))
                     : std::string("."));
    }
    out << "\n\n"
        << Counted(map.BlocksPerCell(), "block") << " each; the most frequent type of\n\n";
    for (const unsigned type : TypesIn(map)) {
        const std::string letter(1, kLetters[type]);
        out << paint.InColour(TerminalColour(ColourOf(type)), letter) << "  "
            << kBlockTypes[type].name << ": " << Counted(map.Count(type), "block") << "\n";
    }
    out << ".  nothing\n";
}

std::string MapSvg(const ScanSetMap& map) {
    const std::vector<unsigned> types = TypesIn(map);
    const std::size_t rows = (map.Cells() + kSvgColumns - 1) / kSvgColumns;
    const std::size_t legend = 2 * kMargin + rows * kCellHeight;
    const std::size_t lines = 1 + (types.size() + kLegendColumns - 1) / kLegendColumns;
    std::string svg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"map\" role=\"img\" viewBox=\"0 0 " +
        std::to_string(kWidth) + ' ' + std::to_string(legend + lines * kLegendLine + kMargin) +
        "\">\n<title>Where the block types lie in the pool</title>\n" + kStyle +
        "<rect class=\"map-ground\" width=\"100%\" height=\"100%\"/>\n";
    for (const Stretch& stretch : StretchesOf(map)) {
        svg += DrawStretch(map, stretch);
    }
    svg += "<text" + Attribute("x", kMargin) + Attribute("y", legend + 11) + ">A cell is " +
           Counted(map.BlocksPerCell(), "block") +
           " of the pool, in the colour of the most frequent type.</text>\n";
    for (std::size_t place = 0; place < types.size(); ++place) {
        svg += DrawLegend(map, types[place], place, legend + kLegendLine);
    }
    return svg + "</svg>\n";
}

}  // namespace zsbtool
