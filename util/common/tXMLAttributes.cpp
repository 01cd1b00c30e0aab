#include <algorithm>
#include <cstring>

#include "util/common/errors.h"
#include "util/common/number.h"
#include "util/common/tXML.h"

namespace TXML {
namespace {

constexpr std::size_t kNumberSize = 80;

/// The attributes of a start tag, from behind the name to the ">".
std::string_view AttributeText(const XML_ElementInfo_s& info) {
    if (info.nameEnd == nullptr) {
        return {};
    }
    const char* end = info.contentStart != nullptr ? info.contentStart - 1 : info.elementEnd;
    return {info.nameEnd, static_cast<std::size_t>(end - info.nameEnd)};
}

const char* SkipWhiteSpace(const char* cursor, const char* end) {
    XML_skipWhiteSpace(cursor, end);
    return cursor;
}

/// The place behind the "=" of `attribute`, or null.
const char* FindAssignment(std::string_view attribute, const char* at, const char* end) {
    for (at = SkipWhiteSpace(at, end); at != end; at = SkipWhiteSpace(at + 1, end)) {
        if (std::string_view(at, static_cast<std::size_t>(end - at)).starts_with(attribute)) {
            const char* sign = SkipWhiteSpace(at + attribute.size(), end);
            if (sign != end && *sign == '=') {
                return sign + 1;
            }
        }
    }
    return nullptr;
}

std::string_view AttributeValue(const XML_ElementInfo_s& info) {
    return {info.attributeValueStart, info.attributeValueLength};
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): from the outside in
int FindAttribute(const char* path, const char* tag, const char* attribute, std::size_t length,
                  const char* text, std::string_view& value) {
    XML_ElementInfo_s info;
    int status = MOSTREL_GetTagTemplate(path, tag, length, text, info);
    if (status == 0) {
        status = XML_GetTagAttribute(attribute, info);
    }
    if (status == 0) {
        value = AttributeValue(info);
    }
    return status;
}

}  // namespace

int XML_GetTagAttribute(const char* attribute, XML_ElementInfo_s& info) {
    const std::string_view text = AttributeText(info);
    const char* end = text.data() + text.size();
    const char* at = FindAssignment(attribute, text.data(), end);
    if (at == nullptr) {
        return zERR_XML_IS_INCOMPLETE;
    }
    at = SkipWhiteSpace(at, end);
    if (at == end || *at != '"') {
        return zERR_XML_IS_INCOMPLETE;
    }
    ++at;
    const char* quote = std::find(at, end, '"');
    if (quote == end) {
        return zERR_XML_IS_INCOMPLETE;
    }
    info.attributeValueStart = at;
    info.attributeValueEnd = quote - 1;
    info.attributeValueLength = static_cast<std::uint64_t>(quote - at);
    return 0;
}

int XML_UTF8ToQUAD(const char* start, const char* end, std::uint64_t& value, const char** next) {
    const char* run = start;
    XML_skipWhiteSpace(run, end);
    if (run >= end) {
        return zERR_BAD_TRANSFORMATION;
    }
    // Looked at up to one byte more than fits, which tells a run that is too long.
    const char* last = run;
    XML_findEndOfNonWhiteSpace(
        last, std::min(end, run + std::min<std::ptrdiff_t>(end - run, kNumberSize)));
    const auto length = static_cast<std::size_t>(last + 1 - run);
    if (length >= kNumberSize) {
        return zERR_BUFFER_TOO_SMALL;
    }
    char number[kNumberSize] = "";
    std::memcpy(number, run, length);
    value = Ostrel::LB_strtouq(number, nullptr, 0);
    if (next != nullptr) {
        *next = run + length;
    }
    return 0;
}

int XML_UTF8ToSQUAD(const char* start, const char* end, std::int64_t& value, const char** next) {
    std::uint64_t bits = 0;
    const int status = XML_UTF8ToQUAD(start, end, bits, next);
    if (status == 0) {
        value = static_cast<std::int64_t>(bits);
    }
    return status;
}

int MOSTREL_GetAttribute(const char* path, const char* tag, const char* attribute,
                         std::size_t length, const char* text, std::string& value) {
    std::string_view found;
    const int status = FindAttribute(path, tag, attribute, length, text, found);
    if (status == 0) {
        value = found;
    }
    return status;
}

int MOSTREL_GetAttribute(const char* path, const char* tag, const char* attribute,
                         std::size_t length, const char* text, std::int64_t& value) {
    std::string_view found;
    const int status = FindAttribute(path, tag, attribute, length, text, found);
    return status != 0 ? status : XML_UTF8ToSQUAD(found.data(), found.data() + found.size(), value);
}

int MOSTREL_GetTagAttributeAttribute(const char* path, const char* tag, const char* attribute,
                                     std::size_t length, const char* text, std::uint64_t& value) {
    std::string_view found;
    const int status = FindAttribute(path, tag, attribute, length, text, found);
    return status != 0 ? status : XML_UTF8ToQUAD(found.data(), found.data() + found.size(), value);
}

int MOSTREL_GetResultValueAttribute(const char* path, std::size_t length, const char* text,
                                    std::int64_t& value) {
    XML_ElementInfo_s info;
    if (const int status = MOSTREL_GetResultTemplate(path, length, text, info); status != 0) {
        return status;
    }
    if (XML_GetTagAttribute("value", info) == 0 && info.attributeValueLength > 0) {
        // A text that cannot be converted counts as a missing one.
        const char* start = info.attributeValueStart;
        XML_UTF8ToSQUAD(start, start + info.attributeValueLength, value);
    }
    return 0;
}

}  // namespace TXML
