#include "util/common/scanSetBlocks.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "util/common/blockTypes.h"

ScanStretchContent::ScanStretchContent(ScanFileWalk& walk, const ScanStretch& stretch)
    : stretch_(stretch),
      compressed_(walk.Compressed()),
      records_(std::make_unique_for_overwrite<QuadAndBlock_s[]>(stretch.records)),
      order_(stretch.records) {
    bool there = walk.Skip(stretch.first - walk.Count());
    for (std::uint32_t i = 0; there && i < stretch.records; ++i) {
        there = walk.Next(&records_[i]);
    }
    if (!there) {
        throw std::runtime_error("a scan file has changed while it was in use");
    }
    SortBlocks();
}

ScanStretchContent::ScanStretchContent(const ScanStretch& stretch, bool compressed,
                                       std::unique_ptr<QuadAndBlock_s[]> records)
    : stretch_(stretch),
      compressed_(compressed),
      records_(std::move(records)),
      order_(stretch.records) {
    SortBlocks();
}

void ScanStretchContent::SortBlocks() {
    std::iota(order_.begin(), order_.end(), 0);
    std::ranges::stable_sort(order_, {}, [this](std::uint32_t i) { return BlockOf(i); });
    // Of those with one number the last one stays: counted from the end it is the first.
    const auto same = [this](std::uint32_t a, std::uint32_t b) { return BlockOf(a) == BlockOf(b); };
    const auto kept = std::unique(order_.rbegin(), order_.rend(), same);
    order_.erase(order_.begin(), kept.base());
}

std::optional<ScanPlace> ScanStretchContent::Next(std::uint64_t from) const {
    const auto found =
        std::ranges::lower_bound(order_, from, {}, [this](std::uint32_t i) { return BlockOf(i); });
    if (found == order_.end()) {
        return {};
    }
    const std::uint64_t index = stretch_.first + *found;
    ScanPlace place{.file = stretch_.file,
                    .index = index,
                    .offset = {},
                    .type = ClassifyBlock(ReadBlockWords(records_[*found].block)),
                    .record = &records_[*found]};
    if (!compressed_) {
        place.offset = kScanFileHeaderSize + index * kRecordSize;
    }
    return place;
}

std::optional<ScanPlace> ScanStretchContent::Find(std::uint64_t block) const {
    const auto place = Next(block);
    return place && place->record->blockNumber == block ? place : std::nullopt;
}

std::optional<ScanPlace> ScanSetBlocks::Find(std::uint64_t block) {
    for (const std::size_t stretch : index_.Candidates(block)) {
        if (const auto place = Load(stretch).Find(block)) {
            return place;
        }
    }
    return {};
}

std::optional<ScanPlace> ScanSetBlocks::Next(std::uint64_t from) {
    const std::vector<ScanStretch>& stretches = index_.Stretches();
    std::optional<std::uint64_t> lowest;
    std::size_t best = 0;
    for (std::size_t i = index_.FirstReaching(from); i < stretches.size(); ++i) {
        if (lowest && stretches[i].range.lowest > *lowest) {
            break;
        }
        if (stretches[i].range.highest < from) {
            continue;
        }
        const auto place = Load(i).Next(from);
        const std::uint64_t block = place->record->blockNumber;
        if (!lowest || block < *lowest ||
            (block == *lowest && stretches[i].IsBehind(stretches[best]))) {
            lowest = block;
            best = i;
        }
    }
    return lowest ? Load(best).Find(*lowest) : std::nullopt;
}

const ScanStretchContent& ScanSetBlocks::Load(std::size_t stretch) {
    if (kept_[0].content == nullptr || kept_[0].stretch != stretch) {
        std::swap(kept_[0], kept_[1]);
    }
    if (kept_[0].content == nullptr || kept_[0].stretch != stretch) {
        kept_[0].content.reset();  // before another takes as much memory
        const ScanStretch& wanted = index_.Stretches()[stretch];
        kept_[0] = {stretch, std::make_unique<ScanStretchContent>(WalkTo(wanted), wanted)};
    }
    return *kept_[0].content;
}

/// A walk over the stretch's file that does not stand behind it.
ScanFileWalk& ScanSetBlocks::WalkTo(const ScanStretch& stretch) {
    if (walk_ == nullptr || walked_ != stretch.file || walk_->Count() > stretch.first) {
        walk_ = std::make_unique<ScanFileWalk>(set_.PathOf(set_.Files()[stretch.file]));
        walked_ = stretch.file;
    }
    return *walk_;
}
