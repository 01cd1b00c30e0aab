#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "util/common/scanSetCheck.h"
#include "util/common/scanSetUnion.h"

/// A block of which several sets hold copies that are not the same.
struct ScanSetConflict {
    std::uint64_t block = 0;
    unsigned type = 0;                 ///< of the first set's copy
    std::vector<std::size_t> sets;     ///< the sets that hold it, in their order
    std::optional<std::size_t> taken;  ///< the set whose copy was taken, if any
};

/// Makes one set of several that were taken of one pool. They may be unfinished: what a stopped or
/// broken-off save has written whole is taken. Sets are told by their places in the order given,
/// from 0.
class ScanSetMerge {
  public:
    struct Options {
        bool compress = false;
        std::optional<std::size_t>
            preferred;  ///< the set whose copy is taken of blocks that differ
    };

    /// What stands against it, or is good to know, with the set that it is said of.
    struct Finding {
        std::size_t set = 0;
        ScanProblem problem;
    };

    /// `sets` must outlive it, and are at least one.
    ScanSetMerge(const std::vector<ScanSet>& sets, Options options)
        : sets_(sets), options_(options) {}

    /// Reads every record of all sets, on so many threads, and judges whether they go together.
    void Check(unsigned jobs, const ScanProgress& progress);

    // Known behind `Check`.

    /// Nothing can be made when there is any.
    const std::vector<Finding>& Problems() const { return problems_; }
    /// In what the sets are unfinished, and their warnings.
    const std::vector<Finding>& Warnings() const { return warnings_; }
    /// How many records each set has.
    const std::vector<std::uint64_t>& Records() const { return records_; }
    /// Whether a set's save came to the end of its range.
    const std::vector<bool>& ReachedEnd() const { return reachedEnd_; }

    using Tell = std::function<void(const ScanSetConflict& conflict)>;

    /// Writes the files of the merged set into `folder`, which ends in "/", on so many threads, and
    /// tells of every block that differs, in their order, on the caller's thread. False when any of
    /// those could not be decided: what is in the folder is of no use then. Throws as
    /// `ScanFileMaker` and `ScanSetUnion` do.
    bool Write(const std::string& folder, unsigned jobs, const ScanProgress& progress,
               const Tell& tell) const;

  private:
    void CheckOne(std::size_t set, unsigned jobs, const ScanProgress& progress);
    void Judge(std::size_t set, const ScanSetReport& report);
    void ComparePools(std::size_t set);
    ScanFileHeader_s CommonHeader() const;

    const std::vector<ScanSet>& sets_;
    const Options options_;
    std::vector<ScanSetUnion::File> files_;
    std::vector<Finding> problems_;
    std::vector<Finding> warnings_;
    std::vector<std::uint64_t> records_;
    std::vector<bool> reachedEnd_;
};
