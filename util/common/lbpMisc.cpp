#include "util/common/lbpMisc.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "util/common/errors.h"
#include "util/common/log.h"

namespace {

/// What follows the key, or null.
const char* Behind(const char* text, const char* key) {
    const char* found = std::strstr(text, key);
    return found != nullptr ? found + std::strlen(key) : nullptr;
}

template <typename Number, typename Converted>
int GetNumber(const char* text, const char* key, Converted (*convert)(const char*, char**, int),
              Number& out) {
    const char* at = Behind(text, key);
    if (at == nullptr) {
        return zERR_LIB_SEARCH_STRING_NOT_FOUND;
    }
    out = static_cast<Number>(convert(at, nullptr, 0));
    return 0;
}

int GetQuoted(const char* text, const char* key, std::string_view& out) {
    const char* at = Behind(text, key);
    if (at == nullptr) {
        return zERR_LIB_SEARCH_STRING_NOT_FOUND;
    }
    const char* quote = std::strchr(at, '"');
    if (quote == nullptr) {
        return zERR_LIB_QUOTE_NOT_FOUND;
    }
    out = {at, static_cast<std::size_t>(quote - at)};
    return 0;
}

}  // namespace

Handle_raii::Handle_raii(const char* path, const char* mode) : stream_(std::fopen(path, mode)) {
    if (stream_ != nullptr) {
        return;
    }
    const char* reason = std::strerror(errno);
    if (std::strchr(mode, 'r') != nullptr) {
        LogLine() << "util/common/lbpMisc[68] Could not open \"" << path << "\" because of \""
                  << reason << "\"\n";
        throw std::runtime_error("Could not open file");
    }
    LogLine() << "util/common/lbpMisc[73] Could not open or create \"" << path << "\" because of \""
              << reason << "\"\n";
    throw std::runtime_error("Could not open/create file");
}

int LBP_GetValue(const char* text, const char* key, std::uint32_t& out) {
    return GetNumber(text, key, std::strtoul, out);
}

int LBP_GetValue(const char* text, const char* key, std::int32_t& out) {
    return GetNumber(text, key, std::strtol, out);
}

int LBP_GetValue(const char* text, const char* key, long& out) {
    return GetNumber(text, key, std::strtol, out);
}

int LBP_GetValue(const char* text, const char* key, unsigned long& out) {
    return GetNumber(text, key, std::strtoul, out);
}

int LBP_GetValue(const char* text, const char* key, unsigned long long& out) {
    return GetNumber(text, key, std::strtoull, out);
}

int LBP_GetValue(const char* text, const char* key, bool& out) {
    return GetNumber(text, key, std::strtoul, out);
}

int LBP_GetValue(const char* text, const char* key, char* out, std::size_t size) {
    std::string_view value;
    if (const int status = GetQuoted(text, key, value); status != 0) {
        return status;
    }
    if (value.size() >= size) {
        if (size > 0) {
            *out = '\0';
        }
        return zERR_BUFFER_TOO_SMALL;
    }
    std::memcpy(out, value.data(), value.size());
    out[value.size()] = '\0';
    return 0;
}

int LBP_GetValue(const char* text, const char* key, std::string& out) {
    std::string_view value;
    const int status = GetQuoted(text, key, value);
    if (status == 0) {
        out = value;
    }
    return status;
}

int LBP_GetValue(const char* text, const char* key, GUID_t& out) {
    std::string value;
    const int status = LBP_GetValue(text, key, value);
    return status != 0 ? status : Ostrel::LB_GUIDFromUTF8(value.c_str(), &out);
}
