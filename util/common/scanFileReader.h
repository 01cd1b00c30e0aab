#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "util/common/positionedStream.h"
#include "util/common/scanFileFormat.h"

class Inflater;

/// Reads one scan file after another, raw or compressed: open a file, read its records up to
/// `zERR_END_OF_FILE`, close it. A file whose header is bad opens all the same and can be read as
/// far as its header allows; `HeaderStatus` tells. What was read of a file (header, offset, CRC)
/// stays known after its close.
///
/// Statuses are 0, `zERR_INVALID_STATE` for a call that needs an open file, or needs none, and
/// those of failed system calls (`SystemErrorStatus`); single calls name others. Used by one thread
/// at a time.
class ScanFileReader {
  public:
    ScanFileReader();
    /// Closes an open file.
    ~ScanFileReader();
    ScanFileReader(const ScanFileReader&) = delete;
    ScanFileReader& operator=(const ScanFileReader&) = delete;

    /// Opens a file and reads its header. `zERR_ZID_NOT_FOUND` when it cannot be opened, whatever
    /// the reason, which is logged.
    int Open(const std::string& path);
    /// Whether a file is open.
    bool IsOpen() const { return stream_.IsOpen(); }
    /// Closes it.
    int Close();

    /// Reads the header (again) and tells whether it is one: `zERR_END_OF_FILE` for a file too
    /// short, `zERR_MEDIA_CORRUPTED` for one of another kind. The place in the records stays.
    int ReadHeader();
    /// What the last reading of the header came to.
    int HeaderStatus() const { return headerStatus_; }
    /// The header last read; all zero where none could be read.
    const ScanFileHeader_s& Header() const { return header_; }
    /// Takes another header for the file's own, to bound the records and to compare the CRC with.
    void UseHeader(const ScanFileHeader_s& header) { header_ = header; }

    /// Whether the open file's data is inflated.
    bool Inflating() const { return inflating_; }
    /// Whether the end of the compressed stream was come to; never in a raw file.
    bool StreamEnded() const;

    /// Goes back to the first record.
    void Rewind();
    /// Reads the next record; `zERR_END_OF_FILE` behind the last. For damaged compressed data
    /// `zINFLATE_ERROR_BASE` and zlib's result, `zERR_BUFFER_TOO_SMALL` for a record of another
    /// length.
    int Read(QuadAndBlock_s* out);
    /// Reads the record at an offset that `Offset` gave; in a raw file alone, a compressed one has
    /// no offsets of records.
    int ReadAt(std::uint64_t offset, QuadAndBlock_s* out);

    /// Where in the file the next bytes come from: the next record of a raw file, the next
    /// compressed input of another.
    std::uint64_t Offset() const { return offset_; }
    /// Where in the file the data ends that the records so far were made from.
    std::uint64_t TakenUpTo() const;
    /// Over the records read since the first; `Header().crc` behind the last of a sound file.
    std::uint32_t Crc() const { return crc_; }

    /// Inflates the next record into 4104 bytes; `zERR_INVALID_STATE` in a raw file, and behind a
    /// record that was left incomplete.
    int InflateRecord(unsigned char* out);
    /// Reads exactly so many bytes at the offset, and moves it.
    int ReadBytes(unsigned char* data, unsigned long length);
    /// Reads up to so many bytes at the offset, and moves it; returns how many came.
    unsigned long ReadSomeBytes(unsigned char* data, unsigned long length);
    /// Moves the offset.
    void Skip(unsigned long length) { offset_ += length; }

  private:
    StreamTransfer ReadFrom(std::uint64_t offset, void* bytes, std::size_t size);
    int TakeHeader(const StreamTransfer& read);
    int CheckHeader() const;
    std::uint64_t RecordsEnd() const;
    int EndOfStream(const unsigned char* out);

    PositionedStream stream_;
    ScanFileHeader_s header_{};
    int headerStatus_ = 0;
    bool inflating_ = false;
    std::unique_ptr<Inflater> inflater_;  // for an open file whose data is inflated
    std::uint64_t offset_ = kScanFileHeaderSize;
    std::uint32_t crc_ = kScanFileCrcStart;
};
