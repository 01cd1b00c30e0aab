#pragma once

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
