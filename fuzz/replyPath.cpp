// Paths through a reply: "path\ntag\nreply". What is found stands in the text, as an element of the
// name that was asked for, and is found again by itself.

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "util/common/tXML.h"

namespace {

std::string_view ContentOf(const TXML::XML_ElementInfo_s& info) {
    return {info.contentStart, info.contentStart != nullptr ? info.contentLength : 0};
}

/// The last tag's name in a path: each runs from a "<" to the next ">".
std::string LastName(const std::string& path) {
    std::string name;
    std::size_t open = path.find('<');
    while (open != std::string::npos) {
        const std::size_t close = std::min(path.find('>', open), path.size());
        name = path.substr(open + 1, close - open - 1);
        open = path.find('<', close);
    }
    return name;
}

bool IsWhole(const std::string& path) {
    return path.size() > 2 && path.front() == '<' && path.back() == '>';
}

/// An element by itself: from its "<" to its last ">".
std::string_view ElementOf(const TXML::XML_ElementInfo_s& info, const std::string& name) {
    const char* start = info.nameEnd - name.size() - 1;
    return {start, static_cast<std::size_t>(info.elementEnd + 1 - start)};
}

void CheckElement(const fuzz::TightText& text, const TXML::XML_ElementInfo_s& info,
                  const std::string& name) {
    fuzz::Require(text.Holds(info.nameEnd, info.elementEnd + 1), "the element stands in the text");
    const std::string_view element = ElementOf(info, name);
    fuzz::Require(text.Holds(element.data(), element.data() + element.size()), "as a whole");
    fuzz::Require(element.starts_with('<' + name), "it has the name that was asked for");
    fuzz::Require(element.ends_with('>'), "it ends with its tag");
    if (info.contentStart == nullptr) {
        fuzz::Require(info.contentLength == 0 && element.ends_with("/>"), "one that closes itself");
        return;
    }
    fuzz::Require(info.contentEnd + 1 == info.contentStart + info.contentLength,
                  "the content's end");
    fuzz::Require(element.ends_with("</" + name + ">"), "the content stands before the end tag");
    fuzz::Require(info.contentStart[-1] == '>' &&
                      text.Holds(info.contentStart, info.contentStart + info.contentLength),
                  "the content stands in the text");
}

/// Cut out of its text, an element reads as it did there.
void CheckAlone(const TXML::XML_ElementInfo_s& info, const std::string& name) {
    const fuzz::TightText alone(ElementOf(info, name));
    TXML::XML_ElementInfo_s again;
    const std::string path = '<' + name + '>';
    const int status =
        TXML::MOSTREL_GetSpecificTemplate(path.c_str(), alone.Size(), alone.Begin(), again);
    fuzz::Require(status == 0, "an element is found by itself");
    fuzz::Require(ContentOf(again) == ContentOf(info), "with the same content");
}

void CheckPath(const fuzz::TightText& text, const std::string& path) {
    TXML::XML_ElementInfo_s info;
    std::string content = "as it was";
    const int status =
        TXML::MOSTREL_GetSpecificTemplate(path.c_str(), text.Size(), text.Begin(), info);
    fuzz::Require(TXML::MOSTREL_GetSpecificTemplate(path.c_str(), text.Size(), text.Begin(),
                                                    content) == status,
                  "both forms agree");
    fuzz::Require(status == 0 || content == "as it was", "what is not found changes nothing");
    if (status != 0 || !IsWhole(path)) {
        return;
    }
    CheckElement(text, info, LastName(path));
    CheckAlone(info, LastName(path));
    const std::string_view whole = ContentOf(info);
    fuzz::Require(content == TXML::XML_stripCDATA(whole.data(), whole.data() + whole.size()),
                  "the content without its wrapper");
}

void CheckTwoPaths(const fuzz::TightText& text, const std::string& path, const std::string& tag) {
    TXML::XML_ElementInfo_s stepwise;
    TXML::XML_ElementInfo_s whole;
    const int status = TXML::MOSTREL_GetTagTemplate(path.c_str(), tag.c_str(), text.Size(),
                                                    text.Begin(), stepwise);
    if (IsWhole(path)) {
        const std::string both = path + tag;
        fuzz::Require(TXML::MOSTREL_GetSpecificTemplate(both.c_str(), text.Size(), text.Begin(),
                                                        whole) == status,
                      "a path in two pieces is the whole one");
        fuzz::Require(status != 0 || ContentOf(whole) == ContentOf(stepwise),
                      "and leads to the same");
    }
}

/// Every tag of the text, one after the other.
void CheckTags(const fuzz::TightText& text) {
    TXML::XML_ElementInfo_s info;
    const char* name = nullptr;
    std::size_t length = 0;
    for (const char* at = text.Begin();
         TXML::XML_GetNextTag(at, text.End(), info, name, length) == 0; at = info.elementEnd + 1) {
        fuzz::Require(text.Holds(name, name + length) && name[-1] == '<', "a name behind its <");
        fuzz::Require(info.elementEnd >= at, "a scan goes forward");
        CheckElement(text, info, std::string(name, length));
        TXML::XML_ElementInfo_s anywhere;
        const std::string wanted(name, length);
        fuzz::Require(wanted.find('\0') != std::string::npos ||
                          TXML::XML_GetTagElement(at, wanted.c_str(), text.End(), anywhere) == 0,
                      "what is there is found");
    }
    for (const char* at = text.Begin(); at != text.End(); ++at) {
        const char* cdata = TXML::XML_atStartCDATA(at, text.End());
        fuzz::Require(cdata == nullptr || (text.Holds(at, cdata + 1) && *cdata == '['),
                      "a wrapper");
        const char* ended = TXML::XML_atEndCDATA(at, text.End());
        fuzz::Require(ended == nullptr || (text.Holds(at, ended + 1) && *ended == '>'), "its end");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    fuzz::Input input(data, size);
    const std::string path = input.Line();
    const std::string tag = input.Line();
    const fuzz::TightText text(input.Rest());
    CheckPath(text, path);
    CheckTwoPaths(text, path, tag);
    CheckTags(text);
    return 0;
}
