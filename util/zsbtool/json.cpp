#include "util/zsbtool/json.h"

#include <nlohmann/json.hpp>

#include "util/zsbtool/output.h"

// The one file that includes the JSON library's header, which takes seconds to compile.

namespace zsbtool {

namespace {

/// The document and the lists in it are spread over lines.
constexpr unsigned kSpreadDepth = 2;

std::string Quoted(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

JsonDocument::JsonDocument(Output& out, std::string_view command) : out_(out) {
    Begin('{');
    Member("format", 1);
    Member("command", command);
}

void JsonDocument::Close() {
    End('}');
    out_ << "\n";
}

void JsonDocument::BeginObject(std::string_view name) {
    Name(name);
    Begin('{');
}

void JsonDocument::BeginList(std::string_view name) {
    Name(name);
    Begin('[');
}

void JsonDocument::BeginEntry() {
    Separate();
    Begin('{');
}

void JsonDocument::Put(std::string_view text) {
    PutPlain(Quoted(text));
}

void JsonDocument::Put(bool truth) {
    PutPlain(truth ? "true" : "false");
}

void JsonDocument::PutPlain(std::string_view text) {
    out_ << text;
}

void JsonDocument::Name(std::string_view name) {
    Separate();
    out_ << Quoted(name) << ": ";
}

void JsonDocument::Begin(char bracket) {
    out_ << std::string_view(&bracket, 1);
    depth_ += 1;
    first_ = true;
}

void JsonDocument::End(char bracket) {
    const bool empty = first_;
    const bool spread = depth_ <= kSpreadDepth;
    depth_ -= 1;
    if (spread && !empty) {
        BreakLine();
    }
    out_ << std::string_view(&bracket, 1);
    first_ = false;
}

void JsonDocument::Separate() {
    if (!first_) {
        out_ << (depth_ <= kSpreadDepth ? "," : ", ");
    }
    if (depth_ <= kSpreadDepth) {
        BreakLine();
    }
    first_ = false;
}

void JsonDocument::BreakLine() {
    out_ << "\n" << std::string(2 * std::size_t{depth_}, ' ');
}

}  // namespace zsbtool
