#pragma once

#include <optional>
#include <string>

namespace zsbtool {

/// The four characters that mark a block type; nothing for blocks of no known type.
std::optional<std::string> MagicText(unsigned type);

/// The index of the type that a person means by its name, whatever the case of its letters, or by
/// its magic. Throws `Failure` when there is none.
unsigned ParseBlockType(const std::string& text);

}  // namespace zsbtool
