#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "util/common/scanPieces.h"
#include "util/common/scanSet.h"
#include "util/common/scanSetCheck.h"
#include "util/common/scanSetIndex.h"
#include "util/common/scanSetLoss.h"

/// The pool of which a set was saved, as far as the set tells: its blocks at their places, zeros
/// where it holds nothing, and parts that cannot be read where its files are at fault
/// (`ScanSetLoss`). Of a block that is there several times the last one counts, as in a restore.
class ScanSetPool {
  public:
    /// Reads every record of the set, which is checked by the way. With `strict` the blocks of
    /// files whose CRC is wrong cannot be read either. Throws std::runtime_error when no header
    /// tells the size of the pool, and std::system_error when the folder cannot be opened.
    ScanSetPool(ScanSet set, unsigned jobs, bool strict, const ScanProgress& progress = {});
    ScanSetPool(const ScanSetPool&) = delete;
    ScanSetPool& operator=(const ScanSetPool&) = delete;

    const ScanSet& Set() const { return set_; }
    /// What the check came to.
    const ScanSetReport& Report() const { return report_; }
    /// What of the pool the set may have lost.
    const std::vector<BlockSpan>& Lost() const { return lost_; }

    std::uint64_t Blocks() const { return blocks_; }
    std::uint64_t Bytes() const { return blocks_ * kPoolBlockSize; }

    /// Reads bytes of the pool, all of which must lie before its end. Returns 0, or EIO when one of
    /// their blocks cannot be read. Called by any thread.
    int Read(std::uint64_t offset, std::span<char> out);

  private:
    ScanSetIndex Study(unsigned jobs, bool strict, const ScanProgress& progress);
    /// Inside one block.
    int ReadPart(std::uint64_t offset, std::span<char> out);
    bool IsLost(std::uint64_t block) const;

    const ScanSet set_;
    const std::uint64_t blocks_;
    ScanSetReport report_;
    std::vector<BlockSpan> lost_;
    const ScanSetIndex index_;
    ScanPieces pieces_;
};
