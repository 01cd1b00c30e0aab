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
    void Begin(std::uint64_t lowest) {
        first_ = lowest;
        above_ = kNoBlock;
        seen_.assign(kWindow, false);
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
        if (block - first_ >= kWindow) {
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
    std::uint64_t lowest = kNoBlock;
    for (const TwiceCandidate& file : files) {
        lowest = std::min(lowest, file.range.lowest);
    }
    Window window;
    // The highest number of all is in no window of another, so it ends the search.
    while (lowest != kNoBlock) {
        window.Begin(lowest);
        std::ranges::for_each(files, [&window](TwiceCandidate& file) { window.Take(file); });
        lowest = window.Above();
    }
}
