#include <cstring>

#include "util/common/errors.h"
#include "util/common/tXML.h"

namespace TXML {
namespace {

constexpr std::size_t kTagNameSize = 128;

/// Follows a path from the content of the element that `info` describes, which it then replaces.
int Descend(const char* path, XML_ElementInfo_s& info) {
    for (;;) {
        char name[kTagNameSize] = "";
        const int status = MOSTREL_GetNextTagString(path, &path, sizeof name, name);
        if (status != 0) {
            // At the path's end `info` describes what was looked for.
            return status == zERR_RETURN_PARA_NULL ? 0 : status;
        }
        if (info.contentLength == 0) {
            return zERR_XML_IS_INCOMPLETE;
        }
        const char* start = info.contentStart;
        const int found =
            XML_GetTagElementAtCurrentLevel(name, start, start + info.contentLength, info);
        if (found != 0) {
            return found;
        }
    }
}

std::string Content(const XML_ElementInfo_s& info) {
    if (info.contentLength == 0) {
        return {};
    }
    return std::string(XML_stripCDATA(info.contentStart, info.contentStart + info.contentLength));
}

}  // namespace

int MOSTREL_GetNextTagString(const char* path, const char** next, std::size_t size, char* buffer) {
    if (path == nullptr || size == 0) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    const char* open = std::strchr(path, '<');
    if (open == nullptr) {
        return zERR_RETURN_PARA_NULL;
    }
    const char* name = open + 1;
    const std::size_t length = std::strcspn(name, ">");
    if (length > size - 1) {
        return zERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, name, length);
    buffer[length] = '\0';
    *next = name + length;
    return 0;
}

int MOSTREL_GetSpecificTemplate(const char* path, std::size_t length, const char* text,
                                XML_ElementInfo_s& info) {
    info = {};
    info.contentStart = text;
    info.contentEnd = text + length;
    info.contentLength = length;
    return Descend(path, info);
}

int MOSTREL_GetSpecificTemplate(const char* path, std::size_t length, const char* text,
                                std::string& content) {
    XML_ElementInfo_s info;
    const int status = MOSTREL_GetSpecificTemplate(path, length, text, info);
    if (status == 0) {
        content = Content(info);
    }
    return status;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int MOSTREL_GetTagTemplate(const char* path, const char* tag, std::size_t length, const char* text,
                           XML_ElementInfo_s& info) {
    const int status = MOSTREL_GetSpecificTemplate(path, length, text, info);
    return status != 0 ? status : Descend(tag, info);
}

int MOSTREL_GetTemplate(const char* path, const char* tag, std::size_t length, const char* text,
                        XML_ElementInfo_s& info) {
    return MOSTREL_GetTagTemplate(path, tag, length, text, info);
}

int MOSTREL_GetResultTemplate(const char* path, std::size_t length, const char* text,
                              XML_ElementInfo_s& info) {
    return MOSTREL_GetTagTemplate(path, "<result>", length, text, info);
}

int MOSTREL_GetTagContents(const XML_ElementInfo_s& info, std::span<const char* const> requests,
                           std::vector<std::string>& contents) {
    int firstFailure = 0;
    contents.assign(requests.size(), {});
    for (std::size_t i = 0; i < requests.size(); ++i) {
        XML_ElementInfo_s found = info;
        const int status = Descend(requests[i], found);
        if (status == 0) {
            contents[i] = Content(found);
        } else if (firstFailure == 0) {
            firstFailure = status;
        }
    }
    return firstFailure;
}

}  // namespace TXML
