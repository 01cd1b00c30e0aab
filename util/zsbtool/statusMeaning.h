#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zsbtool {

/// What a status number means.
struct StatusMeaning {
    std::int32_t number;
    std::string source;               ///< "catalogue", "system", "zlib" or "compressor"
    std::optional<std::string> name;  ///< its symbol
    std::string text;                 ///< for people
};

/// The meaning of a status, if it has one.
std::optional<StatusMeaning> ExplainStatus(std::int32_t number);

/// The status as the log shows it: hexadecimal, without prefix.
std::string HexText(std::int32_t number);

/// A status in 32 bits, with or without its sign; nothing when it is no such number.
std::optional<std::int32_t> ParseDecimalStatus(std::string_view text);
/// The same in hexadecimal, with or without a prefix.
std::optional<std::int32_t> ParseHexStatus(std::string_view text);

}  // namespace zsbtool
