#pragma once

#include <cstdint>

#include "util/common/fileDescriptor.h"
#include "util/common/positionedStream.h"
#include "util/ostrelscan/failedReads.h"

/// How the transfer of one block ended.
struct BlockTransfer {
    enum class Outcome { Done, SeekFailed, Failed, AtEnd, Short };

    Outcome outcome;
    int systemError = 0;  ///< errno when the seek or the transfer failed
};

/// A pool's block device while a pass works on it: blocks of 4096 bytes through one buffered
/// stream. Without an open device a transfer ends as a seek that failed with EBADF, and the calls
/// that return errno return that. Used by one thread.
///
/// Below the stream the kernel joins blocks into large cache pages, and one bad block fails all of
/// them. So after a failed read the rest of that stretch is read block by block outside that
/// caching, and only what fails there too is lost.
class PoolDevice {
  public:
    /// Returns 0 or errno.
    int OpenForReading(const char* path);

    /// Opens an existing device for reading and writing, unbuffered: a buffer would be read anew at
    /// every jump, and an error would show at another block than its own. Returns 0 or errno.
    int OpenForWriting(const char* path);

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
    /// The stream's buffer, and the stretch that is read block by block after a failure. A stretch
    /// begins and ends where the buffer does, so that going on behind it reads nothing twice.
    static constexpr std::uint64_t kStretchBlocks = 64;

    int Open(const char* path, const char* mode, std::size_t bufferSize);
    int SeekTo(std::uint64_t block);
    void ForgetFailures();
    void BeginFailedStretch(std::uint64_t block);
    bool InFailedStretch(std::uint64_t block) const;
    BlockTransfer TryRead(char* buffer, std::uint64_t block);
    BlockTransfer ReadAlone(char* buffer, std::uint64_t block);
    StreamTransfer ReadDirectly(char* buffer, std::uint64_t block);
    StreamTransfer ReadUncached(char* buffer, std::uint64_t block);
    void OpenDirectly();

    PositionedStream stream_;
    std::uint64_t readBlocks_ = 0;  // how many blocks the stream reads at once
    FileDescriptor direct_;
    bool directTried_ = false;
    std::uint64_t stretchStart_ = 0;  // the failed stretch, empty at first
    std::uint64_t stretchEnd_ = 0;
    FailedReads failures_;
};
