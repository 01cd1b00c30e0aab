#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "util/common/guid.h"
#include "util/common/positionedStream.h"
#include "util/common/scanFileFormat.h"

class Deflater;

/// The tool's version as it is stored in every scan file.
extern const std::uint16_t gSCANVersionMajor;
extern const std::uint16_t gSCANVersionMinor;

/// Writes a numbered set of scan files: create the next file, append records until it is full,
/// close it with the reasons for closing, repeat.
///
/// Statuses are 0, `zERR_INVALID_STATE` for a call in the wrong state, and those of failed system
/// calls (`SystemErrorStatus`). The constructor throws std::invalid_argument. Used by one thread at
/// a time.
class ZSBFile {
  public:
    /// `zsbFilePath` is a prefix of every file's path (it ends in "/" when it names a directory).
    /// Without a pool name the set is only read; without a scan ID a new one is generated.
    /// `compSpeed` is zlib's level; `maxFileSize` is the size in logical bytes at which a file is
    /// full.
    ZSBFile(const char* zsbFilePath, const std::string* poolName, bool bypass, const GUID_t* scanID,
            bool compress, int setNumber, unsigned long long poolBlocks, int compSpeed,
            unsigned long long maxFileSize);

    /// A file still being written is closed as one that the operator stopped.
    virtual ~ZSBFile();
    ZSBFile(const ZSBFile&) = delete;
    ZSBFile& operator=(const ZSBFile&) = delete;

    /// Puts a prefix of at most 31 characters before the names of the files created from now on;
    /// returns the stored one. A longer one throws std::invalid_argument.
    const char* AppendNameSet(const char* text);
    void AppendNameClear();

    /// Creates the next file of the set (".ZSB", else ".ZRB"). `zERR_BAD_PARAMETER_VALUE` for a set
    /// or file number that no name can hold.
    int CreateNext(bool zsb);

    /// Appends one record.
    int QuadAndBlockWrite(const QuadAndBlock_s* record);
    int ByteStreamWrite(const unsigned char* data, unsigned long length);

    /// Feeds the compressor, without CRC and byte count. -2 when its output could not be written.
    int ByteStreamCompressionAndWrite(const unsigned char* data, unsigned long length);
    int QuadAndBlockCompressionAndWrite(const unsigned char* record);

    int DataWrite(const unsigned char* data, unsigned long length);
    void DataWriteOffsetUpdate(unsigned length);
    /// Ends the compressed stream, if there is one, and flushes the file.
    int DataWriteFlush();

    /// Builds the header image from the members; returns 0.
    int HeaderFillIn(unsigned long flags);
    int HeaderWrite();

    /// Whether the current file has reached the size limit.
    bool CreateFull() const { return dataBytes >= maxFileSize; }
    /// How many records a full file holds; 0 when none is being created.
    unsigned long long BlocksInFileEstimateGet() const;

    int CreateCloseCompression();
    /// Ends the current file; the four conditions become header flags. `crcOut`, when given,
    /// receives the file's CRC if its header could be written. The file number advances whatever
    /// the result.
    int CreateClose(bool lastFile, bool userStop, bool stateChange, bool fourth,
                    unsigned long* crcOut);

    /// Keeps the first error of the current file.
    void QuadAndBlockErrorSet(int status);
    void QuadAndBlockErrorClear() { firstError = 0; }

    /// Copies the 660-byte header image; returns 0.
    int CopyZSBHeader(ScanFileHeader_s* out) const;
    void SFHGet_ScanID(GUID_t* out) const;

    /// Whether a current file has been named.
    bool HasName() const { return nameValid; }
    /// The current file's path. Throws std::runtime_error when there is none.
    void CurrentFullName(std::string& out) const;
    /// Whether the current name ends in ".ZSB". Throws std::runtime_error when there is none.
    bool IsZSB() const;

    /// Logs the path of every file created or opened.
    void Trace(bool on) { trace = on; }

  private:
    bool NumbersFitName() const;
    std::string NextName(bool zsb) const;
    void BeginFile();
    int WriteCompressorOutput();
    std::uint32_t CloseFlags(bool lastFile, bool userStop, bool stateChange, bool fourth) const;
    int CloseStream();

    bool isZSB = true;
    bool nameValid = false;
    bool creating = false;
    int setNumber;
    bool bypass;
    bool compress;
    int compLevel;
    std::uint32_t fileNumber = 0;
    PositionedStream writeStream;
    std::uint32_t createTime = 0;
    std::uint32_t closeTime = 0;
    std::uint64_t ZF_CreateEof = 0;
    std::uint64_t poolBlocks;
    GUID_t scanID{};
    std::uint64_t dataBytes = 0;
    bool trace = false;
    int firstError = 0;
    std::uint64_t ZF_DataOffset = kScanFileHeaderSize;
    std::uint32_t crc;
    std::string ZF_Path;
    std::string fullName;
    std::string poolName;
    std::string appendPortion;
    bool appendSet = false;
    std::uint64_t maxFileSize;
    ScanFileHeader_s header{};
    std::unique_ptr<Deflater> deflater;  // only when compressing
};
