#include "util/zsbtool/setWalk.h"

#include <string>

#include "util/common/orderedWork.h"
#include "util/common/scanFileWalk.h"
#include "util/common/scanSet.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/settings.h"

namespace zsbtool {

bool WalkSet(const Settings& settings, const ScanSet& set, const char* what,
             const std::function<void(const WalkedRecord& walked)>& take) {
    const std::vector<ScanSetFile>& files = set.Files();
    Progress progress(settings, what, set.Bytes());
    const auto walkOne = [&](std::size_t file) {
        ScanFileWalk walk(set.PathOf(files[file]));
        QuadAndBlock_s record;
        while (walk.Next(&record)) {
            take({file, walk, record});
        }
        progress.Add(walk.FileBytes());
        return WhyUnread(walk);
    };
    bool whole = true;
    const auto tell = [&](std::size_t file, const std::string& why) {
        if (!why.empty()) {
            Complain(files[file].name.Text() + ": " + why);
            whole = false;
        }
    };
    OrderedWork<std::string>::Run(files.size(), settings.jobs, walkOne, tell);
    return whole;
}

IndexedSet IndexSet(const Settings& settings, const ScanSet& set, const char* what) {
    ScanSetIndexer indexer(set.Files().size());
    const bool whole = WalkSet(settings, set, what, [&indexer](const WalkedRecord& walked) {
        indexer.Add(walked.file, walked.record);
    });
    return {indexer.Finish(), whole};
}

}  // namespace zsbtool
