#pragma once

#include <string>
#include <string_view>

namespace zsbtool {

/// A text as a shell takes it for one word; what a terminal must not get raw stands in escapes.
std::string ShellQuoted(std::string_view text);

}  // namespace zsbtool
