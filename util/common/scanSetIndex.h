#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "util/common/scanFileFormat.h"
#include "util/common/scanFileStudy.h"

/// Consecutive records of one file of a set.
struct ScanStretch {
    /// So many records at most: two stretches for a full file of a save, each 5 MiB in memory.
    static constexpr std::uint32_t kMostRecords = 1280;

    std::uint32_t file = 0;     ///< its place among the set's files
    std::uint32_t records = 0;  ///< how many
    std::uint64_t first = 0;    ///< the number of the first one in its file
    BlockRange range;           ///< of their blocks

    /// Whether it stands behind another in the set, so that a restore writes it later.
    bool IsBehind(const ScanStretch& other) const {
        return file != other.file ? file > other.file : first > other.first;
    }
};

/// Tells in which stretches of a set a block may lie, whatever the order of the blocks in it. A
/// stretch takes 40 bytes for some 5 MiB of records, so that the index of any set fits into
/// memory; where in its stretch a block lies, if it does, tell `ScanStretchContent` and
/// `ScanSetBlocks`. Used by any number of threads at a time.
class ScanSetIndex {
  public:
    /// Of stretches in any order.
    explicit ScanSetIndex(std::vector<ScanStretch> stretches);

    /// By their lowest blocks.
    const std::vector<ScanStretch>& Stretches() const { return stretches_; }

    /// The place in `Stretches` from which on there may be blocks from this one on: all stretches
    /// before it lie below. For some stretches behind that place the same may hold.
    std::size_t FirstReaching(std::uint64_t block) const;

    /// The stretches, by their places, whose blocks reach over this one; what a restore writes last
    /// comes first.
    std::vector<std::size_t> Candidates(std::uint64_t block) const;

    /// How many records there are.
    std::uint64_t Records() const;

  private:
    std::vector<ScanStretch> stretches_;
    std::vector<std::uint64_t> reach_;  // the highest block of each stretch and those before it
};

/// Makes an index from the records of a set while they are read for whatever purpose.
class ScanSetIndexer {
  public:
    /// Of a set with so many files, in stretches of so many records at most.
    explicit ScanSetIndexer(std::size_t files,
                            std::uint32_t mostRecords = ScanStretch::kMostRecords)
        : files_(files), mostRecords_(mostRecords) {}

    /// Takes the next record of a file. Those of different files may come on different threads.
    void Add(std::size_t file, const QuadAndBlock_s& record);
    /// The index of what was added; the indexer is spent.
    ScanSetIndex Finish();

  private:
    std::vector<std::vector<ScanStretch>> files_;
    const std::uint32_t mostRecords_;
};
