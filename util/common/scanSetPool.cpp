#include "util/common/scanSetPool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

/// A pool's size must fit into that of a file.
constexpr std::uint64_t kMostBlocks = std::numeric_limits<std::int64_t>::max() / kPoolBlockSize;

std::uint64_t BlocksOf(const ScanSet& set) {
    const ScanSetFile* model = set.Model();
    if (model == nullptr) {
        throw std::runtime_error("no file has a header that tells the pool's size");
    }
    return std::min(model->poolBlocks, kMostBlocks);
}

/// Without the stretches of files whose CRC is wrong.
ScanSetIndex WithoutAltered(const ScanSetIndex& index, const ScanSet& set,
                            const ScanSetReport& report) {
    std::vector<ScanStretch> stretches = index.Stretches();
    std::erase_if(stretches, [&](const ScanStretch& one) {
        return TrustIn(set.Files()[one.file], report.files[one.file]) == ScanFileTrust::kAltered;
    });
    return ScanSetIndex(std::move(stretches));
}

}  // namespace

ScanSetPool::ScanSetPool(ScanSet set, unsigned jobs, bool strict, const ScanProgress& progress)
    : set_(std::move(set)),
      blocks_(BlocksOf(set_)),
      index_(Study(jobs, strict, progress)),
      pieces_(set_, index_) {}

ScanSetIndex ScanSetPool::Study(unsigned jobs, bool strict, const ScanProgress& progress) {
    ScanSetIndexer indexer(set_.Files().size(), ScanPieces::kPieceRecords);
    ScanSetLoss loss(set_.Files().size());
    const auto take = [&](std::size_t file, const QuadAndBlock_s& record) {
        indexer.Add(file, record);
        loss.Add(file, record);
    };
    report_ = CheckScanSet(set_, jobs, progress, take);
    lost_ = loss.Find(set_, report_, strict);
    // A header may tell of more blocks than a file can have.
    std::erase_if(lost_, [this](const BlockSpan& span) { return span.first >= blocks_; });
    std::ranges::for_each(lost_,
                          [this](BlockSpan& span) { span.end = std::min(span.end, blocks_); });
    ScanSetIndex index = indexer.Finish();
    return strict ? WithoutAltered(index, set_, report_) : std::move(index);
}

int ScanSetPool::Read(std::uint64_t offset, std::span<char> out) {
    while (!out.empty()) {
        const std::size_t left = kPoolBlockSize - offset % kPoolBlockSize;
        const std::span part = out.first(std::min(out.size(), left));
        const int error = ReadPart(offset, part);
        if (error != 0) {
            return error;
        }
        offset += part.size();
        out = out.subspan(part.size());
    }
    return 0;
}

int ScanSetPool::ReadPart(std::uint64_t offset, std::span<char> out) {
    const std::uint64_t block = offset / kPoolBlockSize;
    for (const std::size_t stretch : index_.Candidates(block)) {
        const auto content = pieces_.Get(stretch);
        if (content == nullptr) {
            return EIO;  // it may be there, and could have been written last
        }
        if (const auto place = content->Find(block)) {
            std::memcpy(out.data(), place->record->block + offset % kPoolBlockSize, out.size());
            return 0;
        }
    }
    if (IsLost(block)) {
        return EIO;
    }
    std::ranges::fill(out, '\0');
    return 0;
}

bool ScanSetPool::IsLost(std::uint64_t block) const {
    const auto behind = std::ranges::upper_bound(lost_, block, {}, &BlockSpan::first);
    return behind != lost_.begin() && block < std::prev(behind)->end;
}
