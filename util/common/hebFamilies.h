#pragma once

#include <cstdint>
#include <iosfwd>

#include "util/common/heb.h"

/// What tells one registration family of a consumer from another; everything else is shared.
struct HEBFamilyFacts {
    const char* name;
    const char* eventName;
    HEBCallback callback;
    const char* object;  ///< "pool" or "volume"
    /// A state change's short name and the status that refuses it; null and 0 for a family that
    /// only reports.
    const char* request;
    std::uint64_t refusalStatus;
    bool tellsMode;        ///< an unchanged state is reported with the mode flags
    const char* happened;  ///< what a reporting family says first
    void (*report)(std::ostream& line, const void* eventData);  ///< and what it says then
};

const HEBFamilyFacts& HEBFactsOf(HEBFamily family);
