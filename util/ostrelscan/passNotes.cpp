#include <string>

#include "util/common/log.h"
#include "util/ostrelscan/scanEngine.h"

/// What the log of a pass does not show of its reads: the details behind those that it has, and a
/// device that fails but answers when asked again.
void ScanEngine::NoteReads() {
    const std::uint64_t errors = readErrors_.count.load(std::memory_order_relaxed);
    const std::uint64_t omissions =
        errors > TrackedErrors::kDetailed ? errors - TrackedErrors::kDetailed : 0;
    if (omissions > notedOmissions_) {
        LogLine() << "Note: unreadable blocks whose details were left out: "
                  << std::to_string(omissions - notedOmissions_) << '\n';
        notedOmissions_ = omissions;
    }
    const FailedReads& failures = device_.Failures();
    if (failures.RecoveredCount() != 0) {
        LogLine() << "Note: device reads that failed although every block could then be read by "
                     "itself: "
                  << std::to_string(failures.RecoveredCount()) << ", the first at block "
                  << std::hex << failures.FirstRecovered() << '\n';
    }
}
