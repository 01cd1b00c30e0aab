#pragma once

#include <string>
#include <vector>

#include "sim/simulation.h"

namespace sim {

/// What a control command prints and the exit status that goes with it.
struct CommandResult {
    int status = 0;
    std::vector<std::string> lines{};
    bool endsService = false;  ///< the caller ends the service once it has passed the result on
};

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1;  ///< a consumer refused
constexpr int kExitError = 2;    ///< unknown command, object or value; the service is not there
constexpr int kExitSilent = 3;   ///< a consumer did not answer in time

/// Runs one command of `ostrelsimctl`; may wait as long as the consumers take to answer.
CommandResult RunControlCommand(Simulation& simulation, const std::vector<std::string>& words);

}  // namespace sim
