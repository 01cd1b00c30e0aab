#pragma once

#include <optional>
#include <string>

#include "util/common/scanSet.h"
#include "util/common/scanSetCheck.h"

/// Brings the files of a set from raw to compressed or back.
class ScanSetRepack {
  public:
    /// `set` must outlive it.
    ScanSetRepack(const ScanSet& set, bool compress) : set_(set), compress_(compress) {}

    /// Why a file cannot be brought into that form, by its header; nothing when all can.
    std::optional<ScanProblem> Obstacle() const;

    /// Checks the set and writes its files into `folder`, which ends in "/", in one go and on so
    /// many threads: file borders, endings and header fields stay. Where the report speaks against
    /// the set, what is in the folder is of no use. Throws as `ScanFileMaker` does, for files that
    /// cannot be written.
    ScanSetReport Run(const std::string& folder, unsigned jobs, const ScanProgress& progress) const;

  private:
    ScanFileStudy RepackFile(const ScanSetFile& file, const std::string& folder,
                             const ScanProgress& progress) const;

    const ScanSet& set_;
    const bool compress_;
};
