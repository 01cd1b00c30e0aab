#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "util/common/guid.h"
#include "util/common/scanFileFormat.h"
#include "util/common/scanProblem.h"
#include "util/common/scanSetNames.h"

class ScanFileWalk;

/// A file of a set, as its name and its header tell.
struct ScanSetFile {
    ScanFileName name;
    std::uint64_t bytes = 0;  ///< on disk
    bool believable = false;  ///< it has a header that may be gone by; without, the rest is zero
    std::uint32_t flags = 0;
    std::uint32_t createTime = 0;
    std::uint32_t closeTime = 0;
    std::uint32_t fileNumber = 0;  ///< as the header says
    std::uint64_t dataBytes = 0;
    std::uint32_t crc = 0;  ///< of its records, as the header says
    GUID_t scanID{};
    std::string poolName;
    std::uint64_t poolBlocks = 0;
    std::vector<ScanProblem> problems;  ///< of its header, and of its place in the set

    bool Compressed() const { return (flags & kFlagCompressed) != 0; }
    bool Last() const { return (flags & kFlagLastFile) != 0; }
};

/// What a file's header says of how it was written and closed.
struct ScanFileState {
    std::uint32_t flags;
    std::uint32_t closeTime;  ///< 0 for one that was never closed
};

/// The stable words for a file's header flags, among them "never-closed" for one without a time of
/// its close.
std::vector<std::string> FlagWords(const ScanFileState& state);

/// What the header of a file speaks against it, or that it has none. `name` is the file's in them.
std::vector<ScanProblem> HeaderProblems(const ScanFileWalk& walk, const std::string& name);

/// A set of scan files, as their names and headers tell: which files belong to it, in their order,
/// what they have in common, and what of that is wrong. The records are not looked at;
/// `CheckScanSet` does that.
///
/// The set ends at the file that says it is the last. What lies behind it is of the set, too, as
/// long as it comes from the same save; the rest behind it, and files of other set numbers, are
/// strays, which count for nothing else.
class ScanSet {
  public:
    /// Reads the headers. Throws what `ListScanSet` throws.
    explicit ScanSet(const std::string& path, const ScanSetChoice& choice = {})
        : ScanSet(ListScanSet(path, choice)) {}
    explicit ScanSet(ScanSetListing listing);

    const ScanSetListing& Listing() const { return listing_; }
    /// The files of the set, by their numbers.
    const std::vector<ScanSetFile>& Files() const { return files_; }
    const std::vector<ScanSetFile>& Strays() const { return strays_; }
    std::string PathOf(const ScanSetFile& file) const { return listing_.folder + file.name.Text(); }
    /// The first file with a believable header: what is to be the same in all is taken from there.
    /// Null when there is none.
    const ScanSetFile* Model() const;
    /// Bytes of the set's files on disk.
    std::uint64_t Bytes() const;

    /// Of the set as a whole; those of its files stand with them.
    const std::vector<ScanProblem>& Problems() const { return problems_; }
    const std::vector<ScanProblem>& Warnings() const { return warnings_; }

  private:
    void PartStrays();
    void CheckNumbers();
    void CheckLast();
    void CheckCommon();
    void CollectWarnings();
    void Blame(const char* code, const std::string& text) { problems_.push_back({code, "", text}); }

    ScanSetListing listing_;
    std::vector<ScanSetFile> files_;
    std::vector<ScanSetFile> strays_;
    std::vector<ScanProblem> problems_;
    std::vector<ScanProblem> warnings_;
};
