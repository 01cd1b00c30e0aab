#include "util/zsbtool/table.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "util/zsbtool/output.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::size_t kGap = 2;  // between columns

const char* Sequence(Tone tone) {
    switch (tone) {
        case Tone::kHeading:
            return "\x1b[1m";
        case Tone::kGood:
            return "\x1b[32m";
        case Tone::kBad:
            return "\x1b[31m";
        case Tone::kWarning:
            return "\x1b[33m";
        case Tone::kDim:
            return "\x1b[2m";
        case Tone::kPlain:
            break;
    }
    return nullptr;
}

bool ColourIsWanted() {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

/// A cell padded to its column's width. Nothing is put behind the last column.
std::string Padded(const Cell& cell, const Column& column, std::size_t width, bool last,
                   const Painter& paint) {
    const std::string text = Printable(cell.text);
    const std::string padding(width - DisplayWidth(text), ' ');
    const std::string painted = paint(cell.tone, text);
    if (column.right) {
        return padding + painted;
    }
    return last ? painted : painted + padding;
}

}  // namespace

Painter::Painter(const Output& out) : on_(out.IsTerminal() && ColourIsWanted()) {}

std::string Painter::operator()(Tone tone, const std::string& text) const {
    const char* sequence = Sequence(tone);
    return on_ && sequence != nullptr && !text.empty() ? sequence + text + "\x1b[0m" : text;
}

std::string Painter::InColour(unsigned colour, const std::string& text) const {
    return on_ ? "\x1b[38;5;" + std::to_string(colour) + 'm' + text + "\x1b[0m" : text;
}

void Table::Row(std::vector<Cell> cells) {
    rows_.push_back(std::move(cells));
}

std::vector<std::size_t> Table::Widths() const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        std::size_t width = DisplayWidth(columns_[i].heading);
        for (const std::vector<Cell>& row : rows_) {
            width = std::max(width, DisplayWidth(Printable(row[i].text)));
        }
        widths.push_back(width);
    }
    return widths;
}

void Table::Write(Output& out, const Painter& paint) const {
    const std::vector<std::size_t> widths = Widths();
    const auto write = [&](const std::vector<Cell>& row) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const bool last = i + 1 == row.size();
            line += Padded(row[i], columns_[i], widths[i], last, paint);
            line += std::string(last ? 0 : kGap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);  // the last cells may be empty
        out << line << "\n";
    };
    std::vector<Cell> headings;
    for (const Column& column : columns_) {
        headings.emplace_back(column.heading, Tone::kHeading);
    }
    write(headings);
    std::for_each(rows_.begin(), rows_.end(), write);
}

}  // namespace zsbtool
