#pragma once

#include <string>
#include <vector>

#include "util/common/scanSetNames.h"

namespace zsbtool {

/// What a search for sets came to.
struct FoundSets {
    std::vector<ScanSetListing> sets;     ///< folder by folder, as a restore would take them
    std::vector<std::string> unreadable;  ///< why, of each folder that could not be read
};

/// Every set in a folder and in those below it, links not followed; of each letter and ending that
/// `choice` allows. Throws `Failure` when the folder itself cannot be read.
FoundSets FindSets(const std::string& folder, const ScanSetChoice& choice);

}  // namespace zsbtool
