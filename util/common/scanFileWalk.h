#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "util/common/scanFileFormat.h"
#include "util/common/scanFileReader.h"

/// Goes through the records of one scan file as far as they can be read, and tells why it ended. A
/// file whose header cannot be believed has none; one that was never closed has the whole records
/// that stand in it. Used by one thread at a time.
class ScanFileWalk {
  public:
    /// Why there are no more records.
    enum class End {
        kNone,        ///< there may be more
        kData,        ///< the file's data is at its end
        kCut,         ///< the file ends before its data does
        kPart,        ///< the data ends inside a record
        kStream,      ///< the compressed stream is broken, or has no end
        kHeader,      ///< the header is no scan file's
        kUnreadable,  ///< the file cannot be opened or read
    };

    /// Opens the file; `End` tells when that failed.
    explicit ScanFileWalk(const std::string& path);

    /// Reads the next record; false when there is none.
    bool Next(QuadAndBlock_s* record);
    /// Leaves out so many records; false when there are not so many. A raw file is not read for it,
    /// so `Crc` says nothing afterwards, and that they are not there shows at the next one.
    bool Skip(std::uint64_t records);

    End Ended() const { return end_; }
    /// errno of an unreadable file.
    int SystemError() const { return error_; }

    /// How many records were read; the last one's number in the file is one less.
    std::uint64_t Count() const { return count_; }
    /// Where the last record begins in the file; nothing in a compressed file.
    std::optional<std::uint64_t> Offset() const;
    /// Where in the file the data of the last record ends: how far the work has come.
    std::uint64_t TakenUpTo() const { return reader_.TakenUpTo(); }
    /// Over the records read so far.
    std::uint32_t Crc() const { return reader_.Crc(); }

    /// Bytes on disk.
    std::uint64_t FileBytes() const { return bytes_; }
    /// How many bytes of the header there are: 660 in a sound file.
    bool HasHeader() const { return hasHeader_; }
    /// As it stands in the file; all zero without one.
    const ScanFileHeader_s& Header() const { return header_; }
    /// Whether the data is one compressed stream.
    bool Compressed() const { return reader_.Inflating(); }

    /// Closed files have a time for it.
    bool NeverClosed() const { return hasHeader_ && header_.closeTime == 0; }
    /// Whether the header has a signature, and may be gone by.
    bool Believable() const;

  private:
    void OpenFile(const std::string& path);
    void Stop(int status);
    void StopInflating(int status);
    bool PartLeft() const;

    ScanFileReader reader_;
    ScanFileHeader_s header_{};
    std::uint64_t bytes_ = 0;
    bool hasHeader_ = false;
    std::uint64_t count_ = 0;
    End end_ = End::kNone;
    int error_ = 0;
};
