#pragma once

#include <string_view>

namespace zsbtool {

/// Writes one line to standard error, behind the program's name. Never fails.
void Complain(std::string_view text);

struct Settings;

/// The same, for what is good to know and not part of the result: silent with `--quiet`.
void Note(const Settings& settings, std::string_view text);

}  // namespace zsbtool
