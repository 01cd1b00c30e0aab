#include "util/common/scanSetCheck.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "util/common/orderedWork.h"
#include "util/common/scanSetTwice.h"

namespace {

/// Holds the studies of a set's files against each other.
class Examiner {
  public:
    explicit Examiner(const ScanSet& set) : set_(set) {}

    template <class Study>
    ScanSetReport Examine(unsigned jobs, const Study& study) {
        OrderedWork<ScanFileStudy>::Run(
            set_.Files().size(), jobs, study,
            [this](std::size_t i, ScanFileStudy one) { Add(i, std::move(one)); });
        JudgeTwice();
        JudgeOrder();
        CollectProblems();
        CollectWarnings();
        return std::move(report_);
    }

  private:
    void Add(std::size_t i, ScanFileStudy study) {
        ScanFileReport& file = report_.files.emplace_back();
        file.records = study.records;
        file.problems = set_.Files()[i].problems;
        std::ranges::move(study.problems, std::back_inserter(file.problems));
        report_.records += study.records;
        for (std::size_t type = 0; type < study.types.size(); ++type) {
            report_.types[type] += study.types[type];
        }
        if (study.superblock) {
            superblock_ = study.superblock;
        }
        studies_.push_back(std::move(study));
    }

    void Blame(std::size_t i, const char* code, std::string text) {
        report_.files[i].problems.push_back({code, set_.Files()[i].name.Text(), std::move(text)});
    }

    /// Which files must be read once more to find blocks that are there twice: those whose blocks
    /// lie among those of others, and those whose blocks do not ascend.
    std::vector<bool> Suspects() const {
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < studies_.size(); ++i) {
            if (studies_[i].records != 0) {
                order.push_back(i);
            }
        }
        std::ranges::sort(order, {}, [this](std::size_t i) { return studies_[i].range.lowest; });
        std::vector<bool> suspects(studies_.size());
        std::size_t widest = 0;  // the file that reaches highest so far
        for (std::size_t k = 0; k < order.size(); ++k) {
            const std::size_t i = order[k];
            suspects[i] = suspects[i] || !studies_[i].ascending;
            if (k != 0 && studies_[i].range.Meets(studies_[widest].range)) {
                suspects[i] = true;
                suspects[widest] = true;
            }
            if (k == 0 || studies_[i].range.highest > studies_[widest].range.highest) {
                widest = i;
            }
        }
        return suspects;
    }

    void JudgeTwice() {
        const std::vector<bool> suspects = Suspects();
        std::vector<TwiceCandidate> candidates;
        for (std::size_t i = 0; i < studies_.size(); ++i) {
            if (suspects[i]) {
                candidates.push_back({set_.PathOf(set_.Files()[i]), studies_[i].range});
            }
        }
        CountTwice(candidates);
        auto candidate = candidates.begin();
        twice_.resize(studies_.size());
        for (std::size_t i = 0; i < studies_.size(); ++i) {
            twice_[i] = suspects[i] ? (candidate++)->twice : studies_[i].repeated;
            if (twice_[i] != 0) {
                Blame(i, ScanCode::kBlockTwice, BlocksText(twice_[i], "that came before"));
            }
        }
    }

    /// A file that begins below the one before is out of order, too, unless it repeats blocks.
    void JudgeOrder() {
        std::optional<std::uint64_t> before;
        for (std::size_t i = 0; i < studies_.size(); ++i) {
            const ScanFileStudy& study = studies_[i];
            if (before && study.first && *study.first < *before && study.ascending &&
                twice_[i] == 0) {
                Blame(i, ScanCode::kBlockOrder, "its blocks begin below those of the file before");
            }
            before = study.first ? study.first : before;
        }
    }

    void CollectProblems() {
        report_.problems = set_.Problems();
        for (const ScanFileReport& file : report_.files) {
            std::ranges::copy(file.problems, std::back_inserter(report_.problems));
        }
        for (const ScanSetFile& stray : set_.Strays()) {
            std::ranges::copy(stray.problems, std::back_inserter(report_.problems));
        }
    }

    std::uint64_t CountOf(std::uint32_t magic) const {
        return report_.types[FindFirstWordType(magic)];
    }

    /// How many leaves there are of the format that the pool does not have.
    std::uint64_t OtherLeaves() const {
        const std::uint64_t leaves32 = CountOf(kMagicLeaf32);
        const std::uint64_t leaves64 = CountOf(kMagicLeaf64);
        if (superblock_ == FindFirstWordType(kMagicSuperblock32)) {
            return leaves64;
        }
        if (superblock_ == FindFirstWordType(kMagicSuperblock64)) {
            return leaves32;
        }
        return std::min(leaves32, leaves64);  // nobody knows which are the others
    }

    void CollectWarnings() {
        report_.warnings = set_.Warnings();
        if (const std::uint64_t blocks = report_.types[kUserType]; blocks != 0) {
            report_.warnings.push_back(
                {ScanCode::kUserBlocks, "", BlocksText(blocks, "of no known type")});
        }
        if (const std::uint64_t leaves = OtherLeaves(); leaves != 0) {
            report_.warnings.push_back(
                {ScanCode::kOtherFormat, "",
                 BlocksText(leaves, "of the other pool format's leaf type")});
        }
    }

    const ScanSet& set_;
    ScanSetReport report_;
    std::vector<ScanFileStudy> studies_;
    std::vector<std::uint64_t> twice_;    // of each file
    std::optional<unsigned> superblock_;  // type of block 1
};

}  // namespace

ScanSetReport CheckScanSet(const ScanSet& set, unsigned jobs, const ScanProgress& progress,
                           const ScanSetRecordTaker& take) {
    return Examiner(set).Examine(jobs, [&](std::size_t i) {
        ScanRecordTaker takeOne;
        if (take) {
            takeOne = [&take, i](const QuadAndBlock_s& record) { take(i, record); };
        }
        return StudyScanFile(set.Listing().folder, set.Files()[i].name.Text(), progress, takeOne);
    });
}

ScanSetReport StudyAndCheckScanSet(const ScanSet& set, unsigned jobs,
                                   const ScanFileStudent& study) {
    return Examiner(set).Examine(jobs, [&](std::size_t i) { return study(set.Files()[i]); });
}
