#include "util/common/scanSetIndex.h"

#include <algorithm>
#include <numeric>
#include <utility>

ScanSetIndex::ScanSetIndex(std::vector<ScanStretch> stretches) : stretches_(std::move(stretches)) {
    std::ranges::sort(stretches_, [](const ScanStretch& a, const ScanStretch& b) {
        return a.range.lowest != b.range.lowest ? a.range.lowest < b.range.lowest : b.IsBehind(a);
    });
    reach_.reserve(stretches_.size());
    for (const ScanStretch& stretch : stretches_) {
        reach_.push_back(std::max(reach_.empty() ? 0 : reach_.back(), stretch.range.highest));
    }
}

std::size_t ScanSetIndex::FirstReaching(std::uint64_t block) const {
    return static_cast<std::size_t>(std::ranges::lower_bound(reach_, block) - reach_.begin());
}

std::vector<std::size_t> ScanSetIndex::Candidates(std::uint64_t block) const {
    std::vector<std::size_t> found;
    for (std::size_t i = FirstReaching(block);
         i < stretches_.size() && stretches_[i].range.lowest <= block; ++i) {
        if (stretches_[i].range.highest >= block) {
            found.push_back(i);
        }
    }
    std::ranges::sort(found, [this](std::size_t a, std::size_t b) {
        return stretches_[a].IsBehind(stretches_[b]);
    });
    return found;
}

std::uint64_t ScanSetIndex::Records() const {
    const auto add = [](std::uint64_t sum, const ScanStretch& one) { return sum + one.records; };
    return std::accumulate(stretches_.begin(), stretches_.end(), std::uint64_t{0}, add);
}

void ScanSetIndexer::Add(std::size_t file, const QuadAndBlock_s& record) {
    std::vector<ScanStretch>& stretches = files_[file];
    if (stretches.empty() || stretches.back().records == mostRecords_) {
        ScanStretch next;
        next.file = static_cast<std::uint32_t>(file);
        if (!stretches.empty()) {
            next.first = stretches.back().first + stretches.back().records;
        }
        stretches.push_back(next);
    }
    stretches.back().records += 1;
    stretches.back().range.Include(record.blockNumber);
}

ScanSetIndex ScanSetIndexer::Finish() {
    std::vector<ScanStretch> all;
    for (std::vector<ScanStretch>& stretches : files_) {
        all.insert(all.end(), stretches.begin(), stretches.end());
        std::vector<ScanStretch>().swap(stretches);
    }
    return ScanSetIndex(std::move(all));
}
