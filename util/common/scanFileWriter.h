#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "util/common/guid.h"
#include "util/common/positionedStream.h"
#include "util/common/scanFileFormat.h"
#include "util/common/scanFileSettings.h"

class Deflater;

/// Why a file is closed; each becomes a flag of its header.
struct CloseReasons {
    bool lastFile = false;
    bool userStop = false;
    bool stateChange = false;
    bool fourth = false;

    /// The flags that tell them.
    std::uint32_t Flags() const;
};

/// Writes a numbered set of scan files: create the next file, append records until it is full,
/// close it with the reasons for closing, repeat.
///
/// Statuses are 0, `zERR_INVALID_STATE` for a call that needs a file, or needs none, and those of
/// failed system calls (`SystemErrorStatus`); single calls name others. Used by one thread at a
/// time.
class ScanFileWriter {
  public:
    /// Throws std::invalid_argument for settings that no set can have, or when zlib fails.
    explicit ScanFileWriter(ScanFileSettings settings);
    /// Closes a file still being written as one that the operator stopped.
    ~ScanFileWriter();
    ScanFileWriter(const ScanFileWriter&) = delete;
    ScanFileWriter& operator=(const ScanFileWriter&) = delete;

    /// Puts a prefix of at most 31 characters before the names of the files created from now on;
    /// returns the stored one. A longer one throws std::invalid_argument.
    const std::string& SetPrefix(const std::string& prefix);

    /// The path of the file to be created next (".ZSB", else ".ZRB"); none when its numbers are
    /// more than a name can hold.
    std::optional<std::string> NextPath(bool zsb) const;

    /// Creates that file; `zERR_BAD_PARAMETER_VALUE` when it has no name.
    int Create(bool zsb);
    /// Whether a file is being written.
    bool IsOpen() const { return stream_.IsOpen(); }

    /// Appends bytes of records.
    int Append(const unsigned char* data, unsigned long length);
    /// Feeds the compressor, without CRC and byte count. -2 when its output could not be written,
    /// `zERR_INVALID_STATE` in a raw file.
    int Compress(const unsigned char* data, unsigned long length);
    /// Writes bytes of the data area as they are, at the data offset.
    int WriteData(const unsigned char* data, unsigned long length);
    /// Ends the compressed stream, if there is one, and flushes the file.
    int Flush();
    /// Ends the compressed stream, and makes the compressor ready for the next file;
    /// `zERR_INVALID_STATE` in a raw file.
    int EndCompression();

    /// Moves the data offset, and the file's end with it.
    void MoveOffset(unsigned long length);
    /// Makes `offset` the end of the file; one before the end is only logged.
    void ReachEnd(std::uint64_t offset);

    /// Builds the header image of the file last created.
    void FillInHeader(std::uint32_t flags);
    /// Writes that image to the front of the file.
    int WriteHeader();
    /// The image last built; all zero before the first file.
    const ScanFileHeader_s& Header() const { return header_; }

    /// Keeps the first error of the current file, which marks its header.
    void RecordError(int status);
    /// Forgets it, and that it was told.
    void ClearError();

    /// Whether the file last created has reached the size limit.
    bool Full() const { return dataBytes_ >= settings_.sizeLimit; }
    /// How many records a full file holds.
    std::uint64_t RecordsOfAFullFile() const;

    /// Ends the current file. `crcOut`, when given, receives its CRC if its header could be
    /// written. The file number advances whatever the result. A header that cannot be written is
    /// told before compressed bytes that cannot (-2), and those only where no call before failed.
    int Close(const CloseReasons& reasons, unsigned long* crcOut);

  private:
    void Begin();
    int WriteAt(std::uint64_t offset, std::span<const unsigned char> bytes, const char* what);
    int Failed(int status);
    int WriteOutput(std::span<const unsigned char> output);
    int CloseStream();

    const ScanFileSettings settings_;
    const GUID_t scanID_;
    std::string prefix_;
    std::unique_ptr<Deflater> deflater_;  // only when compressing
    std::uint32_t fileNumber_ = 0;        // of the next file to create, until it is closed

    PositionedStream stream_;
    ScanFileHeader_s header_{};
    std::uint32_t createTime_ = 0;
    std::uint32_t closeTime_ = 0;
    std::uint64_t offset_ = kScanFileHeaderSize;  // of the next byte of the data area
    std::uint64_t end_ = 0;                       // the highest offset written
    std::uint64_t dataBytes_ = 0;                 // header and records, uncompressed
    std::uint32_t crc_ = kScanFileCrcStart;
    int firstError_ = 0;   // of the writer or of its user
    bool failed_ = false;  // a call has told an error of the current file
};
