#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zsbtool {

class OutputFile;

/// A text as it may stand in HTML, whatever is in it; control characters become escapes.
std::string Escaped(std::string_view text);

/// Writes a page that needs nothing but itself: no script, no picture, no font from elsewhere;
/// light or dark as its reader likes it. Texts are escaped. Throws `Failure`.
class HtmlPage {
  public:
    HtmlPage(OutputFile& file, std::string_view title);

    /// What the page is about.
    void Subject(std::string_view text);
    void Heading(std::string_view text);
    /// `kind` is a word of the page's style: "good", "bad" or "note".
    void Paragraph(std::string_view kind, std::string_view text);
    /// Something that is markup already.
    void Markup(std::string_view markup);

    /// A column's heading; numbers stand on the right.
    struct TableColumn {
        const char* heading;
        bool right = false;
    };
    /// A table by the name `id`, whose rows follow.
    void BeginTable(std::string_view id, const std::vector<TableColumn>& columns);
    void Row(const std::vector<std::string>& cells);
    void EndTable();

    /// Ends the page and writes what is left.
    void Finish();

  private:
    void Put(std::string_view markup);

    OutputFile& file_;
    std::string kept_;
    std::vector<TableColumn> columns_;  // of the open table
};

}  // namespace zsbtool
