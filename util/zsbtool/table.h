#pragma once

#include <string>
#include <vector>

namespace zsbtool {

class Output;

/// How a text is painted on a terminal.
enum class Tone { kPlain, kHeading, kGood, kBad, kWarning, kDim };

/// Paints texts where colour is wanted: on a terminal that has it, unless NO_COLOR is set.
class Painter {
  public:
    explicit Painter(const Output& out);
    explicit Painter(bool on) : on_(on) {}

    std::string operator()(Tone tone, const std::string& text) const;
    /// In one of a terminal's 256 colours.
    std::string InColour(unsigned colour, const std::string& text) const;

  private:
    bool on_;
};

/// One cell of a table. Its text is made printable by the table.
struct Cell {
    Cell(std::string cellText, Tone cellTone = Tone::kPlain)
        : text(std::move(cellText)), tone(cellTone) {}
    Cell(const char* cellText) : text(cellText) {}

    std::string text;
    Tone tone = Tone::kPlain;
};

/// A column's heading and the side on which its cells stand.
struct Column {
    std::string heading;
    bool right = false;
};

/// Rows under headings, each column as wide as its widest cell. It keeps all rows until it is
/// written.
class Table {
  public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// `cells` are as many as there are columns.
    void Row(std::vector<Cell> cells);
    bool Empty() const { return rows_.empty(); }
    void Write(Output& out, const Painter& paint) const;

  private:
    std::vector<std::size_t> Widths() const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace zsbtool
