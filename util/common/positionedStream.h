#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>

#include "util/common/fileDescriptor.h"

/// How a read or a write of a stream ended.
struct StreamTransfer {
    std::size_t count = 0;  ///< bytes that came or went
    int error = 0;          ///< errno where the system refused the rest
    bool ended = false;     ///< the file ended before the rest
};

/// A stdio stream whose position is known, so that it seeks only when the wanted offset differs: a
/// seek is a system call even inside the buffer. After a failed or short call the position counts
/// as unknown. The stream is closed with its owner; `Close` is for the caller who wants the result.
/// Every call hands over the errno of its own failure. Without an open stream those that return it
/// return EBADF, and the others are not allowed. Used by one thread at a time.
class PositionedStream {
  public:
    /// Opens `path` as fopen does, with a buffer of its own of `bufferSize` bytes (0: unbuffered).
    /// Returns 0 or errno. A stream that is still open is closed.
    int Open(const char* path, const char* mode, std::size_t bufferSize);

    /// Makes a stream of an open file at its start, as `Open` does. Returns 0 or errno.
    int Adopt(FileDescriptor file, const char* mode, std::size_t bufferSize);

    /// Whether there is a stream.
    bool IsOpen() const { return stream_ != nullptr; }

    /// Makes `offset` (bytes from the start) the place of the next read or write. Returns 0 or
    /// errno.
    int SeekTo(std::uint64_t offset);

    /// Transfer `size` bytes from or to the place sought.
    StreamTransfer Read(void* bytes, std::size_t size);
    StreamTransfer Write(const void* bytes, std::size_t size);

    /// Reads from the place sought whole units of `unit` bytes, at least one and at most as many as
    /// `bytes` holds: what the system hands over at once. For an unbuffered stream, past stdio,
    /// which would wait for all of them.
    StreamTransfer ReadUnits(std::span<char> bytes, std::size_t unit);

    /// Reads what the file holds now at an offset, past the buffer; the stream's place stays.
    StreamTransfer ReadPastBuffer(std::uint64_t offset, void* bytes, std::size_t size) const;

    /// The descriptor below, which the stream keeps.
    int Descriptor() const { return fileno(stream_.get()); }

    /// Hands buffered bytes to the system. Returns 0 or errno.
    int Flush();

    /// Makes the system store what it was handed. Returns 0 or errno.
    int Sync();

    /// Closes the stream, which is gone afterwards whatever the result. Returns 0 or errno.
    int Close();

  private:
    enum class Direction { None, Read, Write };

    struct StreamCloser {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    int Begin(std::FILE* stream, std::size_t bufferSize);
    /// Fills a fresh buffer from the start: a seek before the first read would fill it from another
    /// place, and what stands before that would be read twice.
    void FillFromStart();

    /// Between a read and a write of one stream stands a seek, whatever the offset.
    void Turn(Direction direction);
    /// Settles a transfer of which `count` of `size` bytes came about, while errno is its own.
    StreamTransfer Settle(std::size_t count, std::size_t size);

    std::unique_ptr<char[]> buffer_;  // outlives the stream, which closes first
    std::unique_ptr<std::FILE, StreamCloser> stream_;
    bool fresh_ = false;                     // buffered, and nothing was read or written yet
    std::optional<std::uint64_t> position_;  // empty when unknown
    Direction direction_ = Direction::None;
};
