#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>

/// The registration families, one for each event that a consumer knows.
enum class HEBFamily : unsigned { CPSE, CVSE, PR, VR, VRX, VD, VDX, ZID64E, ZID64X };
inline constexpr std::size_t kHEBFamilies = 9;

/// What tells one registration family of a consumer from another; everything else is shared.
struct HEBFamilyFacts {
    const char* name;
    const char* eventName;
    const char* object;  ///< "pool" or "volume"
    /// A state change's short name and the status that refuses it; null and 0 for a family that
    /// only reports.
    const char* request;
    std::uint64_t refusalStatus;
    bool tellsMode;        ///< an unchanged state is reported with the mode flags
    const char* happened;  ///< what a reporting family says first
    void (*report)(std::ostream& line, const void* eventData);  ///< and what it says then
};

/// The facts of a family, which are constant.
const HEBFamilyFacts& HEBFactsOf(HEBFamily family);
