#pragma once

#include <optional>
#include <string>

/// What one run was asked to do. The texts of the process's arguments are borrowed for the run.
struct RunSettings {
    std::string path = "./";  ///< directory of the scan files, ending in "/"
    bool automatic = false;
    bool allBlocks = false;
    bool bypass = false;
    bool compress = false;
    bool danger = false;
    bool validate = true;
    const char* action = nullptr;    ///< "save" or "restore"
    const char* poolName = nullptr;  ///< in upper case
    const char* device = nullptr;
};

extern const char* SCAN_ShortOptions;

/// Prints the usage text; `defaultPath` is shown as the path's default.
void SCAN_Usage(const char* defaultPath);

/// Parses the arguments into `settings` and turns the pool's name into upper case where it stands.
/// Returns nothing when a run is to follow, else the exit status: help and version end with 0,
/// wrong use with its message and 1.
std::optional<int> ParseCommandLine(int argc, char** argv, RunSettings& settings);

/// Hands the run to the operator dialogue. Returns its status, or nothing when the dialogue could
/// not be created, which is logged.
std::optional<unsigned> RunDialogue(const RunSettings& settings);

/// The whole program: arguments, run log, run. Returns the exit status.
int RunProgram(int argc, char** argv);
