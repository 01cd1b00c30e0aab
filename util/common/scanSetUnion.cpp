#include "util/common/scanSetUnion.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "util/common/scanFileWalk.h"

/// One open file and its present record.
class ScanSetUnion::Stream {
  public:
    explicit Stream(const File& file) : file_(file), walk_(file.path) {}

    /// False behind the last record.
    bool Advance() {
        if (walk_.Next(&record_)) {
            return true;
        }
        if (walk_.Ended() == ScanFileWalk::End::kUnreadable) {
            throw std::system_error(walk_.SystemError(), std::generic_category(), file_.path);
        }
        if (walk_.Count() != file_.records) {
            throw std::runtime_error(file_.path + ": it has changed meanwhile");
        }
        return false;
    }

    const QuadAndBlock_s& Record() const { return record_; }
    std::size_t Set() const { return file_.set; }

  private:
    const File& file_;
    ScanFileWalk walk_;
    QuadAndBlock_s record_{};
};

bool ScanSetUnion::Later(const std::unique_ptr<Stream>& a, const std::unique_ptr<Stream>& b) {
    return std::tuple(a->Record().blockNumber, a->Set()) >
           std::tuple(b->Record().blockNumber, b->Set());
}

ScanSetUnion::ScanSetUnion(std::vector<File> files) : files_(std::move(files)) {
    std::erase_if(files_, [](const File& file) { return file.records == 0; });
    std::ranges::sort(files_, {}, [](const File& file) { return file.range.lowest; });
}

ScanSetUnion::~ScanSetUnion() = default;

void ScanSetUnion::Push(std::unique_ptr<Stream> stream) {
    if (stream->Advance()) {
        open_.push_back(std::move(stream));
        std::ranges::push_heap(open_, Later);
    }
}

/// Leaves the block whose copies were given, and opens the files that may hold the next.
void ScanSetUnion::GoOn() {
    for (std::unique_ptr<Stream>& stream : taken_) {
        Push(std::move(stream));
    }
    taken_.clear();
    while (next_ < files_.size() &&
           (open_.empty() || files_[next_].range.lowest <= open_.front()->Record().blockNumber)) {
        Push(std::make_unique<Stream>(files_[next_]));
        next_ += 1;
    }
}

bool ScanSetUnion::AtEnd() {
    GoOn();
    return open_.empty();
}

std::span<const ScanSetUnion::Copy> ScanSetUnion::Next() {
    GoOn();
    copies_.clear();
    const auto sameBlock = [this] {
        return !open_.empty() && (taken_.empty() || open_.front()->Record().blockNumber ==
                                                        taken_.front()->Record().blockNumber);
    };
    while (sameBlock()) {
        std::ranges::pop_heap(open_, Later);
        taken_.push_back(std::move(open_.back()));
        open_.pop_back();
        copies_.push_back({taken_.back()->Set(), &taken_.back()->Record()});
    }
    return copies_;
}
