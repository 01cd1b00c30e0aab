#include "util/common/hebFamilies.h"

#include <ostream>

#include "util/common/errors.h"
#include "util/common/hebEvent.h"
#include "util/common/unicode.h"

namespace {

constexpr char kPoolGUID[] = "Pool GUID";
constexpr char kVolumeGUID[] = "Volume GUID";

void ReportGUID(std::ostream& line, const char* what, const GUID_t& guid) {
    char text[Ostrel::kGUIDTextLength + 1] = "";
    if (Ostrel::LB_GUIDToString(&guid, sizeof text, text) != 0) {
        line << what << " conversion failed.\n";
        return;
    }
    line << what << ": " << text << '\n';
}

template <const char* what>
void ReportRename(std::ostream& line, const void* eventData) {
    const auto& data = *static_cast<const HEBRename*>(eventData);
    ReportGUID(line, what, data.guid);
    line << "Old Name: " << UnicodeString(data.oldName)
         << "\nNew Name: " << UnicodeString(data.newName) << '\n';
}

void ReportVolume(std::ostream& line, const void* eventData) {
    ReportGUID(line, kVolumeGUID, static_cast<const HEBIdentity*>(eventData)->guid);
}

void ReportBothVolumes(std::ostream& line, const void* eventData) {
    const auto& data = *static_cast<const HEBIdentity*>(eventData);
    ReportGUID(line, "Old Volume GUID", data.guid);
    ReportGUID(line, "New Volume GUID", data.newGuid);
}

/// In the order of `HEBFamily`.
constexpr HEBFamilyFacts kFamilies[kHEBFamilies] = {
    {"CPSE", "OSTREL.ChangePoolState.Enter", "pool", "CPS", zERR_POOL_CONSUMER_PREVENTED, false,
     nullptr, nullptr},
    {"CVSE", "OSTREL.ChangeVolState.Enter", "volume", "CVS", zERR_VOLUME_CONSUMER_PREVENTED, true,
     nullptr, nullptr},
    {"PR", "OSTREL.PoolRename.Enter", "pool", nullptr, 0, false, "the pool is being renamed.",
     ReportRename<kPoolGUID>},
    {"VR", "OSTREL.LVolumeRename.Enter", "volume", nullptr, 0, false,
     "the volume is being renamed.", ReportRename<kVolumeGUID>},
    {"VRX", "OSTREL.LVolumeRename.Exit", "volume", nullptr, 0, false,
     "the volume has been renamed.", ReportRename<kVolumeGUID>},
    {"VD", "OSTREL.LVolumeDelete.Enter", "volume", nullptr, 0, false,
     "the volume is being deleted.", ReportVolume},
    {"VDX", "OSTREL.LVolumeDelete.Exit", "volume", nullptr, 0, false,
     "the volume has been deleted.", ReportBothVolumes},
    {"ZID64E", "OSTREL.LVolZID64.Enter", "volume", nullptr, 0, false,
     "the volume is being moved to 64-bit ZIDs.", ReportVolume},
    {"ZID64X", "OSTREL.LVolZID64.Exit", "volume", nullptr, 0, false,
     "the volume has been moved to 64-bit ZIDs.", ReportVolume},
};

}  // namespace

const HEBFamilyFacts& HEBFactsOf(HEBFamily family) {
    return kFamilies[static_cast<std::size_t>(family)];
}
