#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zsbtool {

class Output;

/// Writes one JSON document as it grows, so that a long list takes no memory. The members of the
/// document stand one on a line, and so do the entries of its lists; what is inside of those is
/// compact. Texts that are no UTF-8 have U+FFFD for their wrong bytes. Used by one thread.
class JsonDocument {
  public:
    /// Begins a document of format 1 with the name of its command.
    JsonDocument(Output& out, std::string_view command);

    /// Ends the document, with all lists and objects in it closed.
    void Close();

    // The next member of the open object. A value is a text, a number, a bool, an optional of those
    // (null without a value) or a vector of them.

    template <class Wanted>
    void Member(std::string_view name, const Wanted& wanted) {
        Name(name);
        Put(wanted);
    }
    void BeginObject(std::string_view name);
    void BeginList(std::string_view name);

    // The next entry of the open list.

    template <class Wanted>
    void Entry(const Wanted& wanted) {
        Separate();
        Put(wanted);
    }
    void BeginEntry();

    void EndObject() { End('}'); }
    void EndList() { End(']'); }

  private:
    void Put(std::string_view text);
    void Put(const std::string& text) { Put(std::string_view(text)); }
    void Put(const char* text) { Put(std::string_view(text)); }
    void Put(bool truth);
    template <std::unsigned_integral Number>
    void Put(Number number) {
        PutPlain(std::to_string(number));
    }
    template <std::signed_integral Number>
    void Put(Number number) {
        PutPlain(std::to_string(number));
    }
    template <class Wanted>
    void Put(const std::optional<Wanted>& wanted) {
        if (wanted) {
            Put(*wanted);
        } else {
            PutPlain("null");
        }
    }
    template <class Each>
    void Put(const std::vector<Each>& entries) {
        Begin('[');
        for (const auto& entry : entries) {
            Entry(entry);
        }
        End(']');
    }
    void PutPlain(std::string_view text);

    void Name(std::string_view name);
    void Begin(char bracket);
    void End(char bracket);
    /// What stands between two members or entries.
    void Separate();
    void BreakLine();

    Output& out_;
    unsigned depth_ = 0;
    bool first_ = true;  // nothing stands in the innermost object or list yet
};

}  // namespace zsbtool
