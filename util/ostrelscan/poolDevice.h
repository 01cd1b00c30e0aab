#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "util/common/fileDescriptor.h"
#include "util/common/positionedStream.h"
#include "util/common/scanFileFormat.h"
#include "util/ostrelscan/deviceCache.h"
#include "util/ostrelscan/failedReads.h"

/// How the transfer of one block ended.
struct BlockTransfer {
    enum class Outcome { Done, SeekFailed, Failed, AtEnd, Short };

    Outcome outcome;
    int systemError = 0;  ///< errno when the seek or the transfer failed
};

/// A block that was read: its 4096 bytes, where it was, stay until the device's next call.
struct BlockView {
    BlockTransfer transfer;
    const char* bytes = nullptr;
};

/// A pool's block device while a pass works on it: blocks of 4096 bytes, read through a window of
/// several. Without an open device a transfer ends as a seek that failed with EBADF, and the calls
/// that return errno return that. Used by one thread.
///
/// Below the window the kernel joins blocks into large cache pages, and one bad block fails all of
/// them. So after a failed read the rest of that stretch is read block by block outside that
/// caching, and only what fails there too is lost. For a while behind it the device is read
/// outside that caching as well, a stretch at once: the kernel asks several times for what fails,
/// and each answer may take a dying disk seconds.
class PoolDevice {
  public:
    /// Returns 0 or errno.
    int OpenForReading(const char* path);

    /// Opens an existing device for reading and writing, block by block: a window would be read
    /// anew at every jump, and an error would show at another block than its own. Returns 0 or
    /// errno.
    int OpenForWriting(const char* path);

    /// Reads one block, which stays where the device has put it.
    BlockView View(std::uint64_t block);

    /// Reads one block into `buffer` (4096 bytes).
    BlockTransfer Read(char* buffer, std::uint64_t block);

    /// Writes one block from `buffer` (4096 bytes).
    BlockTransfer Write(const char* buffer, std::uint64_t block);

    /// Hand what was written to the system, make it store that, close the device. Return 0 or
    /// errno.
    int Flush() { return stream_.Flush(); }
    int Sync() { return stream_.Sync(); }
    int Close();

    /// The failed reads since the device was opened, also when it is closed again.
    const FailedReads& Failures() const { return failures_; }

    /// The number of blocks of the device at `path`: 3 when its size is not to be had, 2 when it
    /// cannot be opened, at least 1.
    static std::uint64_t MeasureBlocks(const char* path);

  private:
    /// What one read brings. It comes to stay in the processor's near cache, where its blocks are
    /// looked at; the kernel's copy into a larger one costs a fifth more.
    static constexpr std::uint64_t kWindowBlocks = 16;
    /// What one read brings while the device makes the pass wait: as much as one request takes.
    static constexpr std::uint64_t kLargestWindow = 256;
    /// The stretch that is read block by block after a failure, and the window of distrusted
    /// blocks: what most disks take as one request, which fails once. It ends where a window does,
    /// so that going on behind it reads nothing twice.
    static constexpr std::uint64_t kStretchBlocks = 8 * kWindowBlocks;
    /// How long a failure is remembered: a GiB. Without the kernel's reading ahead a good device
    /// gives half its speed.
    static constexpr std::uint64_t kDistrustBlocks = 1 << 18;

    struct alignas(kPoolBlockSize) Room {
        char blocks[kLargestWindow][kPoolBlockSize];
    };

    int Open(const char* path, const char* mode, std::uint64_t windowBlocks);
    int SeekTo(std::uint64_t block);
    void Forget();
    void ForgetWindow();
    bool InWindow(std::uint64_t block) const;
    /// Reads the window that `block` lies in, from its start or where the last one ended; returns
    /// how that came to bring too little, should it have.
    BlockTransfer FillWindow(std::uint64_t block);
    /// Adds to the window what there is up to a block, from the place sought.
    StreamTransfer ReadOn(std::uint64_t end);
    StreamTransfer ReadCached(std::span<char> room);
    StreamTransfer ReadDirectly(std::span<char> room, std::uint64_t block) const;
    void BeginFailedStretch(std::uint64_t block);
    bool InFailedStretch(std::uint64_t block) const;
    /// Whether a block lies behind a failure, and can be read outside the kernel's caching.
    bool IsDistrusted(std::uint64_t block) const;
    std::uint64_t WindowBlocks(std::uint64_t block) const;
    BlockView TryRead(std::uint64_t block);
    BlockView ReadAlone(std::uint64_t block);
    StreamTransfer ReadUncached(std::uint64_t block);
    void OpenDirectly();

    PositionedStream stream_;
    DeviceCache cache_;
    std::unique_ptr<Room> window_;    // also takes the blocks that are read alone
    std::uint64_t windowBlocks_ = 1;  // how many blocks one read of a good device asks for
    std::uint64_t windowStart_ = 0;   // what the window holds, nothing at first
    std::uint64_t windowEnd_ = 0;
    std::optional<std::uint64_t> failed_;  // the block at which the window's read failed
    FileDescriptor direct_;
    bool directTried_ = false;
    std::uint64_t stretchStart_ = 0;  // the failed stretch, empty at first
    std::uint64_t stretchEnd_ = 0;
    std::uint64_t distrustEnd_ = 0;
    FailedReads failures_;
};
