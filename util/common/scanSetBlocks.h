#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "util/common/scanFileFormat.h"
#include "util/common/scanFileWalk.h"
#include "util/common/scanSet.h"
#include "util/common/scanSetIndex.h"

/// Where a block lies in a set, and what it is.
struct ScanPlace {
    std::uint32_t file;                   ///< its place among the set's files
    std::uint64_t index;                  ///< of the record in its file
    std::optional<std::uint64_t> offset;  ///< of the record in its file; none in a compressed one
    unsigned type;                        ///< place in `kBlockTypes`
    const QuadAndBlock_s* record;         ///< as long as its stretch is kept
};

/// The records of one stretch in memory, some 5 MiB. It does not change, so any number of threads
/// may share it.
class ScanStretchContent {
  public:
    /// Reads them on from where the walk stands, which must be the stretch's file and not behind
    /// its first record. Throws std::runtime_error when they are no longer there.
    ScanStretchContent(ScanFileWalk& walk, const ScanStretch& stretch);
    /// Takes those that were read by other means, of a compressed file or not.
    ScanStretchContent(const ScanStretch& stretch, bool compressed,
                       std::unique_ptr<QuadAndBlock_s[]> records);

    /// The record of the lowest block from this one on; of a block that is there several times the
    /// last one, which is what a restore leaves.
    std::optional<ScanPlace> Next(std::uint64_t from) const;
    /// The record of this block.
    std::optional<ScanPlace> Find(std::uint64_t block) const;

  private:
    void SortBlocks();
    std::uint64_t BlockOf(std::uint32_t i) const { return records_[i].blockNumber; }

    ScanStretch stretch_;
    bool compressed_;
    std::unique_ptr<QuadAndBlock_s[]> records_;
    std::vector<std::uint32_t> order_;  // by block, each block once
};

/// The blocks of a set by their numbers. It keeps at most two stretches in memory, so it is fast
/// where the blocks that are asked for are near to each other. Used by one thread at a time.
class ScanSetBlocks {
  public:
    /// Both must stay as long as this.
    ScanSetBlocks(const ScanSet& set, const ScanSetIndex& index) : set_(set), index_(index) {}

    /// The record that a restore leaves of this block; it stays valid until the next call. Throws
    /// std::runtime_error when the set is no longer what the index was made of.
    std::optional<ScanPlace> Find(std::uint64_t block);
    /// The same of the lowest block from this one on.
    std::optional<ScanPlace> Next(std::uint64_t from);

  private:
    const ScanStretchContent& Load(std::size_t stretch);
    ScanFileWalk& WalkTo(const ScanStretch& stretch);

    struct Kept {
        std::size_t stretch = 0;
        std::unique_ptr<ScanStretchContent> content;
    };

    const ScanSet& set_;
    const ScanSetIndex& index_;
    Kept kept_[2];  // the one used last stands first
    std::unique_ptr<ScanFileWalk> walk_;
    std::uint32_t walked_ = 0;  // the file that it goes over
};
