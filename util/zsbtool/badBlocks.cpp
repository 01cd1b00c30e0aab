#include "util/zsbtool/badBlocks.h"

#include <algorithm>

#include "util/zsbtool/runLog.h"

namespace zsbtool {

BadBlocks StudyBadBlocks(const LoggedRun& run) {
    BadBlocks bad{run.unreadable, false, 0};
    std::sort(bad.blocks.begin(), bad.blocks.end());
    bad.blocks.erase(std::unique(bad.blocks.begin(), bad.blocks.end()), bad.blocks.end());
    const bool all = run.unreadable.size() == run.readErrors;
    bad.complete = all && run.closed;
    if (bad.complete) {
        bad.known = run.reached.value_or(run.poolBlocks.value_or(0));
    } else {
        bad.known = bad.blocks.empty() ? 0 : bad.blocks.back() + 1;
    }
    return bad;
}

}  // namespace zsbtool
