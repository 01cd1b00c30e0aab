#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "sim/service.h"

namespace sim {

/// A wrong line of the configuration or a wrong option; the text says which.
class SettingsError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What one run of the service was asked for.
struct Settings {
    std::string mountPoint = "/_admin";
    std::string socket;                  ///< where the bus library and the control command find it
    bool privateMounts = false;          ///< in a mount namespace of its own
    std::vector<std::string> command{};  ///< to be run against the service; empty: serve until told
    std::vector<StoredObject> pools{};
    std::vector<StoredObject> volumes{};

    /// Blocks of a pool's image that are bad from the start.
    struct BadList {
        std::string pool;
        std::vector<BadBlocks> blocks;
    };
    std::vector<BadList> badLists{};
};

/// Adds a pool or volume given as its name, GUID ("-": one composed from the name), state and
/// perhaps device. Throws `SettingsError`.
void AddObject(Settings& settings, ObjectKind kind, const std::vector<std::string>& words);

/// Reads a configuration file: lines of "pool", "volume" or "bad" and their words, "#" begins a
/// comment. Throws `SettingsError` with the file and line.
void ReadConfiguration(Settings& settings, const std::string& path);

/// Reads the command line. Throws `SettingsError`.
Settings ReadCommandLine(const std::vector<std::string>& words);

/// Puts the pools and volumes into the service and opens their images. Throws `SettingsError`
/// for a name or GUID that is given twice, and for a pool that a bad list misses.
void FillService(Service& service, const Settings& settings);

/// What `ostrelsim --help` prints.
extern const char* const kServiceUsage;

}  // namespace sim
