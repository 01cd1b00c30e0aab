#pragma once

#include <memory>

#include "util/zsbtool/arguments.h"
#include "util/zsbtool/output.h"
#include "util/zsbtool/outputs.h"
#include "util/zsbtool/settings.h"

namespace zsbtool {

/// What every command ends with.
enum class ExitStatus {
    kGood = 0,
    kCouldNotRun = 1,  ///< nothing stands on standard output
    kFaults = 2,       ///< it ran, and the set or the comparison has faults
};

/// Ends a command with `kCouldNotRun`; the text is shown behind the program's name. What the
/// command has written so far is dropped, so it is thrown before `Output::Stream`.
/// What a command works with.
struct Frame {
    const Settings& settings;
    Output& out;       ///< standard output
    Outputs& outputs;  ///< for files and folders that it makes
};

/// One command: it says what it takes, gets it, and runs once.
class Command {
  public:
    virtual ~Command() = default;
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    /// Declares the command's arguments, bound to its members, and which shared options it takes.
    virtual void Declare(Arguments& arguments) = 0;
    /// Throws `Failure` when it cannot run.
    virtual ExitStatus Run(Frame& frame) = 0;
};

/// A command as the program finds it.
struct CommandRow {
    const char* name;
    const char* summary;  ///< one line of the help
    std::unique_ptr<Command> (*make)();
};

}  // namespace zsbtool
