#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "util/common/guid.h"

/// A stdio stream that is closed with its scope.
class Handle_raii {
  public:
    /// Opens `path` as fopen does. A failure is logged and thrown as std::runtime_error.
    Handle_raii(const char* path, const char* mode);

    std::FILE* get() const { return stream_.get(); }

  private:
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    std::unique_ptr<std::FILE, Close> stream_;
};

// Look `key` up in `text` and convert what follows its first occurrence: 0, or
// `zERR_LIB_SEARCH_STRING_NOT_FOUND` without the key, when `out` stays as it was.

/// A number in the base of its prefix (decimal, 0x, 0), as strtoul and its kin read it; what is no
/// number reads as 0. The 32-bit forms keep the low bits.
int LBP_GetValue(const char* text, const char* key, std::uint32_t& out);
int LBP_GetValue(const char* text, const char* key, std::int32_t& out);
int LBP_GetValue(const char* text, const char* key, long& out);
int LBP_GetValue(const char* text, const char* key, unsigned long& out);
int LBP_GetValue(const char* text, const char* key, unsigned long long& out);
/// Whether the number is other than 0.
int LBP_GetValue(const char* text, const char* key, bool& out);

// The text up to the next double quote; `zERR_LIB_QUOTE_NOT_FOUND` when there is none.

/// `zERR_BUFFER_TOO_SMALL`, and an empty text, when `size` bytes do not hold it with its end.
int LBP_GetValue(const char* text, const char* key, char* out, std::size_t size);
int LBP_GetValue(const char* text, const char* key, std::string& out);
/// `zERR_INVALID_VOLUME_ID` when it is no GUID's text.
int LBP_GetValue(const char* text, const char* key, GUID_t& out);
