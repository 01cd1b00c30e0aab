#include "util/common/tXML.h"

#include <algorithm>

#include "util/common/ascii.h"
#include "util/common/errors.h"
#include "util/common/log.h"

namespace TXML {
namespace {

constexpr std::string_view kStartCDATA = "<![CDATA[";
constexpr std::string_view kEndCDATA = "]]>";
constexpr std::string_view kEndTag = "</";

std::string_view View(const char* from, const char* end) {
    return from < end ? std::string_view(from, static_cast<std::size_t>(end - from))
                      : std::string_view();
}

bool EndsName(char character) {
    return Ascii::IsSpace(character) || character == '/' || character == '>';
}

/// Length of the name at the start of `text`, which is all of it when the text ends inside it.
std::size_t NameLength(std::string_view text) {
    return static_cast<std::size_t>(std::find_if(text.begin(), text.end(), EndsName) -
                                    text.begin());
}

bool IsEndTagOf(std::string_view name, std::string_view text) {
    return text.starts_with(kEndTag) && text.substr(kEndTag.size()).starts_with(name) &&
           text.substr(kEndTag.size() + name.size()).starts_with('>');
}

/// Offset of the end tag that closes the element `name` whose content starts `text`. Both counts
/// go by names and not by whole tags, as the service's own tools count: an inner element of the
/// same name counts as open even where it is self-closing.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): what, then where
std::size_t FindEndTag(std::string_view name, std::string_view text) {
    std::int64_t depth = 0;
    std::size_t sameName = 0;
    std::size_t at = text.find('<');
    for (; at != std::string_view::npos; at = text.find('<', at)) {
        const std::string_view rest = text.substr(at);
        if (depth == 0 && rest.starts_with(kStartCDATA)) {
            at = text.find(kEndCDATA, at + kStartCDATA.size());
        } else if (rest.starts_with(kEndTag)) {
            if (IsEndTagOf(name, rest) && sameName-- == 0) {
                return at;
            }
            --depth;
            at += kEndTag.size();
        } else {
            const std::string_view inner = rest.substr(1, NameLength(rest.substr(1)));
            at += 1 + inner.size();
            if (at == text.size()) {
                break;
            }
            depth += text[at] == '/' ? 0 : 1;
            sameName += inner == name ? 1 : 0;
        }
    }
    return std::string_view::npos;
}

/// Steps to the next "<" and measures the name behind it.
int NextName(const char* from, const char* end, std::string_view& name) {
    const std::string_view text = View(from, end);
    const std::size_t open = text.find('<');
    if (open == std::string_view::npos) {
        return zERR_XML_IS_INCOMPLETE;
    }
    const std::string_view rest = text.substr(open + 1);
    name = rest.substr(0, NameLength(rest));
    return name.size() == rest.size() ? zERR_XML_IS_INCOMPLETE : 0;
}

}  // namespace

int XML_GetNextTag(const char* from, const char* end, XML_ElementInfo_s& info, const char*& name,
                   std::size_t& nameLength) {
    std::string_view found;
    if (const int status = NextName(from, end, found); status != 0) {
        return status;
    }
    name = found.data();
    nameLength = found.size();
    info.nameEnd = name + nameLength;
    return XML_FindEndOfElement(name, nameLength, info.nameEnd, end, info);
}

int XML_FindEndOfElement(const char* name, std::size_t nameLength, const char* from,
                         const char* end, XML_ElementInfo_s& info) {
    const std::string_view rest = View(from, end);
    const std::size_t close = rest.find('>');
    if (close == std::string_view::npos) {
        return zERR_XML_IS_INCOMPLETE;
    }
    info.elementEnd = from + close;
    info.contentStart = nullptr;
    info.contentEnd = nullptr;
    info.contentLength = 0;
    if (info.elementEnd != name && info.elementEnd[-1] == '/') {
        return 0;
    }
    const std::string_view content = rest.substr(close + 1);
    const std::size_t length = FindEndTag({name, nameLength}, content);
    if (length == std::string_view::npos) {
        return zERR_XML_IS_INCOMPLETE;
    }
    info.contentStart = content.data();
    info.contentEnd = content.data() + length - 1;
    info.contentLength = length;
    info.elementEnd = content.data() + length + kEndTag.size() + nameLength;
    return 0;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int XML_GetTagElementAtCurrentLevel(const char* name, const char* from, const char* end,
                                    XML_ElementInfo_s& info) {
    const std::string_view wanted(name);
    for (const char* at = from;; at = info.elementEnd + 1) {
        const char* found = nullptr;
        std::size_t length = 0;
        if (const int status = XML_GetNextTag(at, end, info, found, length); status != 0) {
            return status;
        }
        if (std::string_view(found, length) == wanted) {
            return 0;
        }
    }
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int XML_GetTagElement(const char* text, const char* name, const char* end,
                      XML_ElementInfo_s& info) {
    const std::string_view wanted(name);
    std::string_view found;
    const char* at = text;
    do {
        if (const int status = NextName(at, end, found); status != 0) {
            return status;
        }
        at = found.data() + found.size();
    } while (found != wanted);
    info.nameEnd = at;
    return XML_FindEndOfElement(found.data(), found.size(), at, end, info);
}

const char* XML_atStartCDATA(const char* at, const char* end) {
    return View(at, end).starts_with(kStartCDATA) ? at + kStartCDATA.size() - 1 : nullptr;
}

const char* XML_atEndCDATA(const char* at, const char* end) {
    return View(at, end).starts_with(kEndCDATA) ? at + kEndCDATA.size() - 1 : nullptr;
}

std::string_view XML_stripCDATA(const char* start, const char* end) {
    const std::string_view content = View(start, end);
    if (!content.starts_with(kStartCDATA)) {
        return content;
    }
    // The wrapper's end is taken for granted: an element's content is cut at its end tag.
    const std::size_t wrapper = kStartCDATA.size() + kEndCDATA.size();
    return content.size() < wrapper ? std::string_view()
                                    : content.substr(kStartCDATA.size(), content.size() - wrapper);
}

void XML_skipWhiteSpace(const char*& cursor, const char* end) {
    while (cursor < end && Ascii::IsSpace(*cursor)) {
        ++cursor;
    }
}

void XML_findEndOfNonWhiteSpace(const char*& cursor, const char* end) {
    while (end - cursor > 1 && !Ascii::IsSpace(cursor[1])) {
        ++cursor;
    }
}

void XML_Display(const char* start, const char* end) {
    LogLine() << View(start, end) << '\n';
}

}  // namespace TXML
