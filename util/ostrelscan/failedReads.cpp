#include "util/ostrelscan/failedReads.h"

void FailedReads::Failed(std::uint64_t first, std::uint64_t end) {
    if (first < end) {
        open_.push_back({first, first, end});
    }
}

void FailedReads::ReadAlone(std::uint64_t block, bool good) {
    for (Read& read : open_) {
        if (block < read.first || block >= read.end) {
            continue;
        }
        if (!good) {
            read.next = read.end;
        } else if (block == read.next && ++read.next == read.end) {
            Count(read);
        }
    }
    std::erase_if(open_, [](const Read& read) { return read.next == read.end; });
}

void FailedReads::Count(const Read& read) {
    if (count_ == 0) {
        first_ = read.first;
    }
    ++count_;
}
