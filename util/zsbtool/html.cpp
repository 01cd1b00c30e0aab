#include "util/zsbtool/html.h"

#include "util/zsbtool/outputs.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::size_t kKeptOfPage = 65'536;

// The empty icon keeps browsers from asking the place that the page came from for one.
constexpr const char* kHead = R"(<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<link rel="icon" href="data:,">
<style>
:root { --ground: #fff; --text: #222; --line: #d4d4d4; --good: #1a7f37; --bad: #b3261e; }
@media (prefers-color-scheme: dark) {
  :root { --ground: #1b1b1b; --text: #ddd; --line: #444; --good: #57c774; --bad: #ff8a80; }
}
body { background: var(--ground); color: var(--text); font: 15px/1.5 sans-serif;
       max-width: 66rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.6rem; } h2 { font-size: 1.2rem; margin-top: 2rem; }
table { border-collapse: collapse; }
th, td { text-align: left; padding: .15rem .8rem .15rem 0; border-bottom: 1px solid var(--line);
         vertical-align: top; overflow-wrap: anywhere; }
.right { text-align: right; white-space: nowrap; }
.good { color: var(--good); font-weight: bold; } .bad { color: var(--bad); font-weight: bold; }
svg { width: 100%; height: auto; }
</style>
)";

}  // namespace

std::string Escaped(std::string_view text) {
    std::string out;
    for (const char character : Printable(text)) {
        switch (character) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += character;
        }
    }
    return out;
}

HtmlPage::HtmlPage(OutputFile& file, std::string_view title) : file_(file) {
    Put("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n" + std::string(kHead) + "<title>" +
        Escaped(title) + "</title>\n</head>\n<body>\n");
}

void HtmlPage::Subject(std::string_view text) {
    Put("<h1>" + Escaped(text) + "</h1>\n");
}

void HtmlPage::Heading(std::string_view text) {
    Put("<h2>" + Escaped(text) + "</h2>\n");
}

void HtmlPage::Paragraph(std::string_view kind, std::string_view text) {
    Put("<p class=\"" + std::string(kind) + "\">" + Escaped(text) + "</p>\n");
}

void HtmlPage::Markup(std::string_view markup) {
    Put(markup);
}

void HtmlPage::BeginTable(std::string_view id, const std::vector<TableColumn>& columns) {
    columns_ = columns;
    Put("<table id=\"" + std::string(id) + "\">\n<thead><tr>");
    for (const TableColumn& column : columns_) {
        Put(std::string("<th") + (column.right ? " class=\"right\">" : ">") + column.heading +
            "</th>");
    }
    Put("</tr></thead>\n<tbody>\n");
}

void HtmlPage::Row(const std::vector<std::string>& cells) {
    Put("<tr>");
    for (std::size_t i = 0; i < cells.size(); ++i) {
        Put((columns_[i].right ? "<td class=\"right\">" : "<td>") + Escaped(cells[i]) + "</td>");
    }
    Put("</tr>\n");
}

void HtmlPage::EndTable() {
    Put("</tbody>\n</table>\n");
}

void HtmlPage::Finish() {
    Put("</body>\n</html>\n");
    file_.Write(kept_);
    kept_.clear();
}

void HtmlPage::Put(std::string_view markup) {
    kept_ += markup;
    if (kept_.size() >= kKeptOfPage) {
        file_.Write(kept_);
        kept_.clear();
    }
}

}  // namespace zsbtool
