#include "util/common/scanFileStudy.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "util/common/scanFileWalk.h"

namespace {

constexpr std::uint64_t kProgressStep = 1 << 20;

/// Studies one file while it is read.
class Student {
  public:
    Student(const std::string& folder, const std::string& name)
        : name_(name), walk_(folder + name) {}

    ScanFileStudy Study(const ScanProgress& progress, const ScanRecordTaker& take) {
        if (walk_.Ended() == ScanFileWalk::End::kUnreadable) {
            return std::move(study_);  // the header tells
        }
        std::uint64_t told = 0;
        QuadAndBlock_s record;
        while (walk_.Next(&record)) {
            Take(record);
            if (take) {
                take(record);
            }
            if (progress && walk_.TakenUpTo() >= told + kProgressStep) {
                progress(walk_.TakenUpTo() - told);
                told = walk_.TakenUpTo();
            }
        }
        if (progress && walk_.FileBytes() > told) {
            progress(walk_.FileBytes() - told);
        }
        JudgeBlocks();
        JudgeEnd();
        return std::move(study_);
    }

  private:
    void Take(const QuadAndBlock_s& record) {
        const std::uint64_t block = record.blockNumber;
        const unsigned type = ClassifyBlock(ReadBlockWords(record.block));
        study_.types[type] += 1;
        if (block == 1) {
            study_.superblock = type;
        }
        if (block >= walk_.Header().poolBlocks) {
            outside_ += 1;
        } else if (!study_.first) {
            study_.first = block;
        }
        if (study_.records != 0) {
            lower_ += block < last_ ? 1 : 0;
            study_.repeated += block == last_ ? 1 : 0;
        }
        study_.range.Include(block);
        study_.records += 1;
        last_ = block;
    }

    void JudgeBlocks() {
        if (outside_ != 0) {
            Blame(ScanCode::kBlockRange, BlocksText(outside_, "behind the pool's end"));
        }
        if (lower_ != 0) {
            Blame(ScanCode::kBlockOrder, BlocksText(lower_, "below the one before"));
        }
        study_.ascending = lower_ == 0;
    }

    /// How the file's data ended. A file that was never closed ends anywhere.
    void JudgeEnd() {
        const ScanFileWalk::End end = walk_.Ended();
        if (end == ScanFileWalk::End::kUnreadable) {
            Blame(ScanCode::kUnreadable, std::strerror(walk_.SystemError()));
        }
        if (end == ScanFileWalk::End::kHeader || walk_.NeverClosed()) {
            return;
        }
        if (end == ScanFileWalk::End::kPart) {
            Blame(ScanCode::kTruncated, "its data ends inside a record");
        } else if (end == ScanFileWalk::End::kStream) {
            Blame(ScanCode::kDeflate, "its compressed stream is broken behind record " +
                                          std::to_string(study_.records));
        }
        JudgeLength();
        if (end == ScanFileWalk::End::kData) {
            JudgeData();
        }
    }

    /// Whether data that came to its end is what the header says.
    void JudgeData() {
        const ScanFileHeader_s& header = walk_.Header();
        const std::uint64_t wanted = RecordsInDataBytes(header.dataBytes);
        if (study_.records < wanted) {
            Blame(ScanCode::kTruncated, "it has " + std::to_string(study_.records) +
                                            " records of " + std::to_string(wanted));
        } else if (study_.records > wanted) {
            Blame(ScanCode::kTrailingData, "it has " + std::to_string(study_.records) +
                                               " records, and its header counts " +
                                               std::to_string(wanted));
        }
        const std::uint64_t end = walk_.TakenUpTo();
        if (end < std::min(DataEnd(), walk_.FileBytes())) {
            Blame(ScanCode::kTrailingData,
                  std::to_string(DataEnd() - end) + " bytes stand behind its compressed stream");
        }
        if (walk_.Crc() != header.crc) {
            Blame(ScanCode::kCrc, "the CRC of its records is " + std::to_string(walk_.Crc()) +
                                      ", and that of its header " + std::to_string(header.crc));
        }
    }

    /// Whether the file is as long as its data.
    void JudgeLength() {
        const std::uint64_t bytes = walk_.FileBytes();
        if (bytes < DataEnd()) {
            Blame(ScanCode::kTruncated,
                  "it has " + std::to_string(bytes) + " bytes of " + std::to_string(DataEnd()));
        } else if (bytes > DataEnd()) {
            Blame(ScanCode::kTrailingData,
                  "it goes on " + std::to_string(bytes - DataEnd()) + " bytes behind its data");
        }
    }

    /// Where the header lets the data end.
    std::uint64_t DataEnd() const {
        constexpr std::uint32_t kRaw = kFlagCompressed | kFlagRawAfterAll;
        const ScanFileHeader_s& header = walk_.Header();
        return (header.flags & kRaw) == kRaw ? header.dataBytes : header.fileEof;
    }

    /// One problem of a kind is enough for a file.
    void Blame(const char* code, const std::string& text) {
        const auto same = [code](const ScanProblem& problem) { return problem.code == code; };
        if (std::ranges::none_of(study_.problems, same)) {
            study_.problems.push_back({code, name_, text});
        }
    }

    const std::string name_;
    ScanFileWalk walk_;
    ScanFileStudy study_;
    std::uint64_t last_ = 0;     // the block before
    std::uint64_t lower_ = 0;    // blocks below the one before
    std::uint64_t outside_ = 0;  // blocks behind the pool's end
};

}  // namespace

ScanFileStudy StudyScanFile(const std::string& folder, const std::string& name,
                            const ScanProgress& progress, const ScanRecordTaker& take) {
    return Student(folder, name).Study(progress, take);
}
