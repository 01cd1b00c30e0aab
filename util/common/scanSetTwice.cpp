#include "util/common/scanSetTwice.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "util/common/scanFileWalk.h"

namespace {

constexpr std::uint64_t kWindow = std::uint64_t{1} << 27;
constexpr std::uint64_t kNoBlock = std::numeric_limits<std::uint64_t>::max();

/// The blocks seen in one window, and the lowest block above it.
class Window {
  public:
    /// As large as these blocks need it, and not larger than a window may be.
    void Begin(const BlockRange& blocks) {
        first_ = blocks.lowest;
        above_ = kNoBlock;
        seen_.assign(std::min(kWindow - 1, blocks.highest - blocks.lowest) + 1, false);
    }

    /// Counts the blocks of a file that are in the window and were seen before.
    void Take(TwiceCandidate& file) {
        if (file.range.highest < first_) {
            return;
        }
        ScanFileWalk walk(file.path);
        QuadAndBlock_s record;
        while (walk.Next(&record)) {
            TakeBlock(record.blockNumber, file.twice);
        }
    }

    std::uint64_t Above() const { return above_; }

  private:
    void TakeBlock(std::uint64_t block, std::uint64_t& twice) {
        if (block < first_) {
            return;
        }
        if (block - first_ >= seen_.size()) {
            above_ = std::min(above_, block);
            return;
        }
        std::vector<bool>::reference seen = seen_[block - first_];
        twice += seen ? 1 : 0;
        seen = true;
    }

    std::uint64_t first_ = 0;
    std::uint64_t above_ = kNoBlock;
    std::vector<bool> seen_;
};

}  // namespace

void CountTwice(std::vector<TwiceCandidate>& files) {
    BlockRange left;
    for (const TwiceCandidate& file : files) {
        left.Include(file.range.lowest);
        left.Include(file.range.highest);
    }
    Window window;
    // The highest number of all is in no window of another, so it ends the search.
    while (left.lowest != kNoBlock) {
        window.Begin(left);
        std::ranges::for_each(files, [&window](TwiceCandidate& file) { window.Take(file); });
        left.lowest = window.Above();
    }
}
