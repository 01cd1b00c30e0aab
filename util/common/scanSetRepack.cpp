#include "util/common/scanSetRepack.h"

#include <algorithm>

#include "util/common/scanFileMaker.h"

namespace {

constexpr int kLeastLevel = -1;
constexpr int kMostLevel = 9;

/// Whether what the headers tell is good already.
bool HeadersAreGood(const ScanSet& set) {
    const auto good = [](const ScanSetFile& file) { return file.problems.empty(); };
    return set.Problems().empty() && set.Strays().empty() && std::ranges::all_of(set.Files(), good);
}

}  // namespace

std::optional<ScanProblem> ScanSetRepack::Obstacle() const {
    for (const ScanSetFile& file : set_.Files()) {
        const auto because = [&file](const char* why) {
            return ScanProblem{"", file.name.Text(), why};
        };
        if ((file.flags & kFlagRawAfterAll) != 0) {
            return because("it carries the flag that makes compressed files raw");
        }
        if (file.believable && file.Compressed() == compress_) {
            return because(compress_ ? "it is compressed already" : "it is raw already");
        }
        // The way back would not know that it was there.
        if (compress_ && (file.flags & kFlagAlwaysWithCompressed) != 0) {
            return because("it is raw, and has a flag of compressed files");
        }
        const int level =
            compress_ ? ReadScanFileHeader(set_.PathOf(file)).compressionLevel : kLeastLevel;
        if (level < kLeastLevel || level > kMostLevel) {
            return because("the compression level in its header is none");
        }
    }
    return {};
}

ScanFileStudy ScanSetRepack::RepackFile(const ScanSetFile& file, const std::string& folder,
                                        const ScanProgress& progress) const {
    ScanFileName name = file.name;
    name.letter = compress_ ? 'C' : 'T';
    const ScanFileHeader_s header = ReadScanFileHeader(set_.PathOf(file));
    ScanFileMaker maker(folder + name.Text(), {compress_, header.compressionLevel});
    ScanFileStudy study =
        StudyScanFile(set_.Listing().folder, file.name.Text(), progress,
                      [&maker](const QuadAndBlock_s& record) { maker.Append(record); });
    maker.Finish(header);
    return study;
}

ScanSetReport ScanSetRepack::Run(const std::string& folder, unsigned jobs,
                                 const ScanProgress& progress) const {
    if (!HeadersAreGood(set_)) {
        return CheckScanSet(set_, jobs, progress);
    }
    return StudyAndCheckScanSet(
        set_, jobs, [&](const ScanSetFile& file) { return RepackFile(file, folder, progress); });
}
