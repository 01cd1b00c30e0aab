#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

/// The identifier of a pool or volume as events carry it: 16 bytes in memory order, the first
/// three numbers little-endian.
using Guid = std::array<std::uint8_t, 16>;

/// Reads the 8-4-4-4-12 and the 8-4-4-2-2-12 form; nothing for any other text.
std::optional<Guid> GuidFromText(std::string_view text);

/// The 8-4-4-2-2-12 form in lower case.
std::string TextOfGuid(const Guid& guid);

/// A GUID composed from a name: the same name always gives the same one.
Guid GuidFromName(std::string_view name);

}  // namespace sim
