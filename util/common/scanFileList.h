#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "util/common/stableSequence.h"

class ZSBFile;

/// What is known of one scan file of a run. The counts, the CRC and the status change while other
/// threads read them, one by one and without order between them.
struct ScanFileFacts {
    static constexpr std::uint64_t kCrcUnknown = ~std::uint64_t{0};

    ScanFileFacts(std::string fileName, int fileStatus)
        : name(std::move(fileName)), status(fileStatus) {}

    /// False for the one entry that stands for the absence of an entry.
    bool Valid() const;

    /// Set the CRC and the status.
    void UpdateCRC(unsigned long newCrc);
    void UpdateStatus(int newStatus);
    /// Add to the counts of blocks.
    void UpdateBlocksTotal(int count);
    void UpdateBlocksCurrent(int count);

    const std::string name;            ///< the file's full path
    std::atomic<std::int32_t> status;  ///< 0, `zFILE_BEING_WRITTEN`, or why the file failed
    std::atomic<std::uint64_t> crc{kCrcUnknown};
    std::atomic<std::uint64_t> blocksTotal{0};    ///< blocks expected in the file
    std::atomic<std::uint64_t> blocksCurrent{0};  ///< blocks written or read so far
};

/// The facts in decimal, separated by tab characters, without a line end.
std::ostream& operator<<(std::ostream& stream, const ScanFileFacts& facts);

/// Stands for the absence of an entry. Updates of an empty list change it.
extern ScanFileFacts SFF_Unreferenced;

/// The cursor of a walk over a list; a walk goes from the newest entry to the oldest.
struct SFL_Key {
    /// At the newest of `count` entries.
    // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
    SFL_Key(int walkMode, int count) : mode(walkMode), index(count - 1) {}

    int mode;   ///< kept, not used
    int index;  ///< of the next entry
};

/// The scan files of a run, oldest first. One thread appends and updates the newest entry; another
/// may walk the list at the same time.
class ScanFileList {
  public:
    /// Enters a file after `CreateNext`; a status of 0 is entered as `zFILE_BEING_WRITTEN`.
    void LogTrackCreate(const ZSBFile& file, int status);
    /// Enters a file after it was opened for reading.
    void LogTrackOpen(const ZSBFile& file, int status);

    /// Set the CRC, the status, or both of the newest entry.
    void LogTrackUpdate(unsigned long crc);
    void LogTrackUpdate(int status, unsigned long crc);
    void LogTrackUpdate(int status);
    /// Adds to both counts of the newest entry.
    void LogTrackUpdateBlockCounts(unsigned long long current, unsigned long long total);

    /// The newest entry, or `SFF_Unreferenced`.
    ScanFileFacts& ScanFileFactsLast();

    /// A key at the newest entry.
    SFL_Key KeyAtNewest(int mode) const { return {mode, static_cast<int>(files_.Size())}; }
    /// The same in memory of its own, owned by the caller; `EnumerateClose` deletes it.
    SFL_Key* EnumerateOpen(int mode) const;
    /// The entry at the key, which steps to the one before; `SFF_Unreferenced` past the oldest.
    ScanFileFacts& Enumerate(SFL_Key* key);
    /// Deletes a key; a null one is ignored.
    void EnumerateClose(SFL_Key* key) const;

    /// Logs the whole list, oldest first.
    void DumpScanHistory() const;

  private:
    StableSequence<ScanFileFacts> files_;
};
