#pragma once

#include <optional>

#include "util/ostrelscan/runSettings.h"

class SignalWatch;

extern const char* const SCAN_ShortOptions;

/// Prints the usage text; `defaultPath` is shown as the path's default.
void SCAN_Usage(const char* defaultPath);

/// Parses the arguments into `settings` and turns the pool's name into upper case where it stands.
/// Returns nothing when a run is to follow, else the exit status: help and version end with 0,
/// wrong use with its message and 1.
std::optional<int> ParseCommandLine(int argc, char** argv, RunSettings& settings);

/// Hands the run to the operator dialogue, and the dialogue to the signals that may end it. Returns
/// its status, or nothing when the dialogue could not be created, which is logged.
std::optional<unsigned> RunDialogue(const RunSettings& settings, SignalWatch* signals = nullptr);

/// The whole program: arguments, run log, run. Returns the exit status.
int RunProgram(int argc, char** argv);
