#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct GUID_t;

namespace zsbtool {

/// The text as a terminal may get it: control characters and bytes that are no UTF-8 become
/// escapes such as "\x1b", so that a name cannot steer the terminal or break a line.
std::string Printable(std::string_view text);

/// How many columns a printable text takes on a terminal.
std::size_t DisplayWidth(std::string_view text);

/// A number of bytes for people: "660 B", "10.0 MiB".
std::string ReadableSize(std::uint64_t bytes);

/// "1 block", "2 blocks".
std::string Counted(std::uint64_t count, std::string_view what);

/// The words with a blank between them.
std::string Joined(const std::vector<std::string>& words);

/// UTC seconds as ISO 8601: "2023-11-14T22:13:20Z".
std::string TimeText(std::uint64_t seconds);

/// A GUID in the text form of the tool.
std::string GuidText(const GUID_t& guid);

}  // namespace zsbtool
