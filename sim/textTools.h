#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// The pieces of `text` between separators; an empty text is one empty piece.
std::vector<std::string> Split(std::string_view text, char separator);

/// The words of `text` between blanks and tabs; none is empty.
std::vector<std::string> SplitWords(std::string_view text);

/// An unsigned decimal number, or a hexadecimal one after "0x"; nothing for any other text.
std::optional<std::uint64_t> ToNumber(std::string_view text);

}  // namespace sim
