#include "util/common/scanSetMerge.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "util/common/clock.h"
#include "util/common/crc.h"
#include "util/common/guid.h"
#include "util/common/orderedWork.h"
#include "util/common/scanFileMaker.h"

namespace {

constexpr std::uint64_t kRecordsOfAFullFile =
    (kScanFileSizeLimit - kScanFileHeaderSize + kRecordSize - 1) / kRecordSize;

/// Whether a set is only unfinished by this.
bool IsUnfinished(const ScanProblem& problem) {
    constexpr std::string_view kUnfinished[] = {ScanCode::kStopped, ScanCode::kStateChange,
                                                ScanCode::kNeverClosed, ScanCode::kNoLastFile,
                                                ScanCode::kTruncated};
    return std::ranges::find(kUnfinished, problem.code) != std::end(kUnfinished);
}

/// What one file of the merged set is made of.
struct Batch {
    std::size_t number = 0;
    std::vector<QuadAndBlock_s> records;
    std::vector<ScanSetConflict> conflicts;
    bool last = false;
    bool wanted = true;  ///< there is such a file, and it is of use
};

/// Parts the records of all sets among the files of the merged one. The batches are taken in the
/// order of the files, by any threads: who comes too early waits.
class Distribution {
  public:
    Distribution(std::vector<ScanSetUnion::File> files, std::optional<std::size_t> preferred)
        : union_(std::move(files)), preferred_(preferred) {}

    Batch Take(std::size_t number) {
        std::unique_lock lock(mutex_);
        turned_.wait(lock, [this, number] { return turn_ == number; });
        const Turn turn(*this);
        Batch batch;
        batch.number = number;
        batch.wanted = !ended_;
        if (!ended_) {
            ended_ = true;  // should it throw
            Fill(batch);
            ended_ = batch.last = union_.AtEnd();
            batch.wanted = decided_;
        }
        return batch;
    }

    /// Whether a copy could be chosen of every block; asked when the work is done.
    bool Decided() const { return decided_; }

  private:
    /// Lets the next one in at its end.
    class Turn {
      public:
        explicit Turn(Distribution& owner) : owner_(owner) {}
        ~Turn() {
            owner_.turn_ += 1;
            owner_.turned_.notify_all();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        Distribution& owner_;
    };

    void Fill(Batch& batch) {
        batch.records.reserve(kRecordsOfAFullFile);
        for (std::uint64_t i = 0; i < kRecordsOfAFullFile && !union_.AtEnd(); ++i) {
            const std::span<const ScanSetUnion::Copy> copies = union_.Next();
            if (const QuadAndBlock_s* chosen = Choose(copies, batch.conflicts)) {
                batch.records.push_back(*chosen);
            }
        }
    }

    const QuadAndBlock_s* Choose(std::span<const ScanSetUnion::Copy> copies,
                                 std::vector<ScanSetConflict>& conflicts) {
        const QuadAndBlock_s* first = copies.front().record;
        const auto same = [first](const ScanSetUnion::Copy& copy) {
            return std::memcmp(copy.record->block, first->block, kPoolBlockSize) == 0;
        };
        if (std::ranges::all_of(copies, same)) {
            return first;
        }
        ScanSetConflict& conflict = conflicts.emplace_back();
        conflict.block = first->blockNumber;
        conflict.type = ClassifyBlock(ReadBlockWords(first->block));
        const QuadAndBlock_s* chosen = nullptr;
        for (const ScanSetUnion::Copy& copy : copies) {
            conflict.sets.push_back(copy.set);
            if (copy.set == preferred_) {
                conflict.taken = copy.set;
                chosen = copy.record;
            }
        }
        decided_ = decided_ && chosen != nullptr;
        return chosen;
    }

    ScanSetUnion union_;
    const std::optional<std::size_t> preferred_;
    std::mutex mutex_;
    std::condition_variable turned_;
    std::size_t turn_ = 0;
    bool ended_ = false;
    bool decided_ = true;
};

/// Writes the files of the merged set from their batches.
class MergedFiles {
  public:
    MergedFiles(std::string folder, const ScanFileHeader_s& header, const ScanForm& form)
        : folder_(std::move(folder)), header_(header), form_(form) {}

    /// `lastFlags` are those of the last file.
    void Write(const Batch& batch, std::uint32_t lastFlags) const {
        if (batch.number > kMaxFileNumber) {
            throw std::runtime_error("the merged set would have more files than there are numbers");
        }
        const auto number = static_cast<std::uint32_t>(batch.number);
        const ScanFileName name{form_.compressed ? 'C' : 'T', false, 0, number};
        ScanFileMaker maker(folder_ + name.Text(), form_);
        ScanFileHeader_s header = header_;
        header.fileNumber = number;
        header.flags |= batch.last ? lastFlags : 0U;
        header.dataBytes = kScanFileHeaderSize + batch.records.size() * kRecordSize;
        header.crc = kScanFileCrcStart;
        for (const QuadAndBlock_s& record : batch.records) {
            header.crc = Ostrel::updateCRC(header.crc, &record, kRecordSize);
            maker.Append(record);
        }
        header.closeTime = static_cast<std::uint32_t>(Ostrel::GetUTCTime());
        maker.Finish(header);
    }

  private:
    const std::string folder_;
    const ScanFileHeader_s header_;
    const ScanForm form_;
};

}  // namespace

void ScanSetMerge::Check(unsigned jobs, const ScanProgress& progress) {
    for (std::size_t set = 0; set < sets_.size(); ++set) {
        CheckOne(set, jobs, progress);
        ComparePools(set);
    }
}

void ScanSetMerge::CheckOne(std::size_t set, unsigned jobs, const ScanProgress& progress) {
    const ScanSet& one = sets_[set];
    std::mutex mutex;
    const auto study = [&](const ScanSetFile& file) {
        ScanFileStudy found = StudyScanFile(one.Listing().folder, file.name.Text(), progress);
        const std::lock_guard lock(mutex);
        files_.push_back({one.PathOf(file), set, found.range, found.records});
        return found;
    };
    Judge(set, StudyAndCheckScanSet(one, jobs, study));
}

void ScanSetMerge::Judge(std::size_t set, const ScanSetReport& report) {
    for (const ScanProblem& problem : report.problems) {
        (IsUnfinished(problem) ? warnings_ : problems_).push_back({set, problem});
    }
    for (const ScanProblem& warning : report.warnings) {
        warnings_.push_back({set, warning});
    }
    records_.push_back(report.records);
    const std::vector<ScanSetFile>& files = sets_[set].Files();
    const auto cut = [](const ScanProblem& problem) {
        return std::string_view(problem.code) == ScanCode::kTruncated;
    };
    reachedEnd_.push_back(!files.empty() && files.back().Last() &&
                          std::ranges::none_of(report.files.back().problems, cut));
}

void ScanSetMerge::ComparePools(std::size_t set) {
    const ScanSetFile* first = sets_.front().Model();
    const ScanSetFile* own = sets_[set].Model();
    const auto blame = [&](const std::string& text) {
        problems_.push_back({set, {ScanCode::kMixedPool, "", text}});
    };
    if (first == nullptr || own == nullptr) {
        return;
    }
    if (own->poolName != first->poolName) {
        blame("its pool is \"" + own->poolName + "\", and that of the first set is \"" +
              first->poolName + "\"");
    } else if (own->poolBlocks != first->poolBlocks) {
        blame("its pool has " + std::to_string(own->poolBlocks) +
              " blocks, and that of the first set has " + std::to_string(first->poolBlocks));
    }
}

/// What all files of the merged set have in common.
ScanFileHeader_s ScanSetMerge::CommonHeader() const {
    constexpr std::uint32_t kKept = kFlagBypass | kFlagUncheckedTypes;
    const ScanSetFile& model = *sets_.front().Model();
    ScanFileHeader_s header = ReadScanFileHeader(sets_.front().PathOf(model));
    header.headerVersion = kScanFileVersion;
    header.headerRevision = kScanFileRevision;
    header.versionMajor = gSCANVersionMajor;
    header.versionMinor = gSCANVersionMinor;
    std::ranges::fill(header.reserved, std::uint8_t{0});
    header.flags = 0;
    for (const ScanSet& set : sets_) {
        for (const ScanSetFile& file : set.Files()) {
            header.createTime = std::min<std::uint32_t>(header.createTime, file.createTime);
            header.flags |= file.flags & kKept;
        }
    }
    GUID_t scanID{};
    Ostrel::LB_GUIDGenerate(&scanID);
    header.scanID = scanID;
    return header;
}

bool ScanSetMerge::Write(const std::string& folder, unsigned jobs, const ScanProgress& progress,
                         const Tell& tell) const {
    const ScanFileHeader_s header = CommonHeader();
    const MergedFiles files(folder, header, {options_.compress, header.compressionLevel});
    const bool whole = std::ranges::find(reachedEnd_, true) != reachedEnd_.end();
    Distribution distribution(files_, options_.preferred);
    const auto write = [&](std::size_t number) {
        Batch batch = distribution.Take(number);
        if (batch.wanted) {
            files.Write(batch, whole ? kFlagLastFile : kFlagUserStop);
        }
        if (progress) {
            progress(batch.records.size() * kRecordSize);
        }
        return std::move(batch.conflicts);
    };
    const std::uint64_t most = std::accumulate(records_.begin(), records_.end(), std::uint64_t{0});
    OrderedWork<std::vector<ScanSetConflict>>::Run(
        most / kRecordsOfAFullFile + 1, jobs, write,
        [&tell](std::size_t /*number*/, const std::vector<ScanSetConflict>& conflicts) {
            std::ranges::for_each(conflicts, tell);
        });
    return distribution.Decided();
}
