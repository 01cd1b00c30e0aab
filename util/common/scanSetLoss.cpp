#include "util/common/scanSetLoss.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "util/common/scanProblem.h"

namespace {

bool HasOne(const ScanFileReport& report, std::initializer_list<std::string_view> codes) {
    return std::ranges::any_of(report.problems, [codes](const ScanProblem& problem) {
        return std::ranges::find(codes, problem.code) != codes.end();
    });
}

/// Opens and closes the parts while the files go by.
class Parts {
  public:
    explicit Parts(std::uint64_t poolBlocks) : poolBlocks_(poolBlocks) {}

    /// From here on nobody knows, unless that is so already.
    void Open() {
        from_ = open_ ? from_ : behind_;
        open_ = true;
    }
    /// A block that was saved lies here, with nothing missing behind it.
    void CloseAt(std::uint64_t block) {
        if (block < poolBlocks_) {
            EndAt(block);
        }
    }
    void MoveBehind(std::uint64_t block) { behind_ = block < poolBlocks_ ? block + 1 : behind_; }

    /// In order and apart, though the blocks of the files may not have been.
    std::vector<BlockSpan> Finish() {
        EndAt(poolBlocks_);
        std::ranges::sort(parts_, {}, &BlockSpan::first);
        std::vector<BlockSpan> joined;
        for (const BlockSpan& part : parts_) {
            if (joined.empty() || joined.back().end < part.first) {
                joined.push_back(part);
            } else {
                joined.back().end = std::max(joined.back().end, part.end);
            }
        }
        return joined;
    }

  private:
    void EndAt(std::uint64_t block) {
        if (open_ && from_ < block) {
            parts_.push_back({from_, block});
        }
        open_ = false;
    }

    const std::uint64_t poolBlocks_;
    std::uint64_t behind_ = 0;  // the block behind the last one read
    bool open_ = false;
    std::uint64_t from_ = 0;
    std::vector<BlockSpan> parts_;
};

/// Whether the save came to its end at the end of these files, or was ended there on purpose.
bool EndsOnPurpose(const ScanSet& set) {
    constexpr std::uint32_t kEnds = kFlagLastFile | kFlagUserStop | kFlagStateChange;
    return !set.Files().empty() && (set.Files().back().flags & kEnds) != 0;
}

}  // namespace

ScanFileTrust TrustIn(const ScanSetFile& file, const ScanFileReport& report) {
    if (!file.believable || HasOne(report, {ScanCode::kNeverClosed, ScanCode::kTruncated,
                                            ScanCode::kDeflate, ScanCode::kUnreadable})) {
        return ScanFileTrust::kBroken;
    }
    return HasOne(report, {ScanCode::kCrc}) ? ScanFileTrust::kAltered : ScanFileTrust::kGood;
}

void ScanSetLoss::Add(std::size_t file, const QuadAndBlock_s& record) {
    Ends& ends = ends_[file];
    ends.first = ends.first.value_or(record.blockNumber);
    ends.last = record.blockNumber;
}

std::vector<BlockSpan> ScanSetLoss::Find(const ScanSet& set, const ScanSetReport& report,
                                         bool altered) const {
    const ScanSetFile* model = set.Model();
    Parts parts(model == nullptr ? 0 : model->poolBlocks);
    std::uint32_t expected = 0;
    for (std::size_t i = 0; i < ends_.size(); ++i) {
        const ScanSetFile& file = set.Files()[i];
        const ScanFileTrust trust = TrustIn(file, report.files[i]);
        const bool useless = altered && trust == ScanFileTrust::kAltered;
        if (file.name.fileNumber != expected || useless) {
            parts.Open();
        }
        expected = file.name.fileNumber + 1;
        if (ends_[i].first && trust == ScanFileTrust::kGood) {
            parts.CloseAt(*ends_[i].first);
        }
        if (ends_[i].first && !useless) {
            parts.MoveBehind(ends_[i].last);
        }
        if (trust == ScanFileTrust::kBroken) {
            parts.Open();
        }
    }
    if (!EndsOnPurpose(set)) {
        parts.Open();
    }
    return parts.Finish();
}
