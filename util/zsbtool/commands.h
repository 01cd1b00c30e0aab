#pragma once

#include <span>

#include "util/zsbtool/command.h"

namespace zsbtool {

/// Every command, in the order of the help.
std::span<const CommandRow* const> Commands();

}  // namespace zsbtool
