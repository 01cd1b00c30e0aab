#pragma once

#include <memory>
#include <string>

#include "util/zsbtool/command.h"

namespace zsbtool {

/// What the command line asks for: a command to run, or a text to print in its place.
struct Request {
    std::unique_ptr<Command> command;
    std::string text;
};

/// Reads the command line. Throws `Failure` with a hint at the help when it is not legal.
Request ParseArguments(int argc, const char* const* argv, Settings& settings);

}  // namespace zsbtool
