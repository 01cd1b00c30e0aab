#include "util/zsbtool/checkSet.h"

#include <utility>

#include "util/zsbtool/progress.h"
#include "util/zsbtool/settings.h"

namespace zsbtool {

CheckedSet CheckSet(const Settings& settings, ScanSet set, const ScanSetRecordTaker& take) {
    Progress progress(settings, "check", set.Bytes());
    ScanSetReport report = CheckScanSet(
        set, settings.jobs, [&progress](std::uint64_t bytes) { progress.Add(bytes); }, take);
    return {std::move(set), std::move(report)};
}

}  // namespace zsbtool
