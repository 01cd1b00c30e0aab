#include "util/ostrelscan/failedReads.h"

#include <algorithm>

namespace {

constexpr std::uint64_t kLargestPage = 512;

/// The largest page that can begin at a block.
std::uint64_t PageAt(std::uint64_t block) {
    const std::uint64_t alignment = block & (~block + 1);
    return block == 0 ? kLargestPage : std::min(alignment, kLargestPage);
}

}  // namespace

void FailedReads::Failed(std::uint64_t first, std::uint64_t end, std::uint64_t deviceEnd) {
    end = std::min(std::max(end, first + PageAt(first)), deviceEnd);
    const bool together = piece_.reads != 0 && first < piece_.end && end > piece_.begin;
    if (!together) {
        piece_ = {.begin = first,
                  .end = end,
                  .next = first,
                  .firstFailed = first,
                  .reads = 0,
                  .lost = false};
    }
    piece_.begin = std::min(piece_.begin, first);
    piece_.next = std::min(piece_.next, first);
    piece_.end = std::max(piece_.end, end);
    ++piece_.reads;
}

void FailedReads::Tried(std::uint64_t block, bool good) {
    if (block < piece_.begin || block >= piece_.end) {
        return;
    }
    piece_.lost = piece_.lost || !good;
    if (block == piece_.next && ++piece_.next == piece_.end && !piece_.lost) {
        Count();
    }
}

void FailedReads::Count() {
    if (count_ == 0) {
        first_ = piece_.firstFailed;
    }
    count_ += piece_.reads;
}
