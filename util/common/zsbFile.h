#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "util/common/guid.h"
#include "util/common/positionedStream.h"
#include "util/common/scanFileFormat.h"

class Deflater;
class Inflater;

/// The tool's version as it is stored in every scan file.
extern const std::uint16_t gSCANVersionMajor;
extern const std::uint16_t gSCANVersionMinor;

/// Writes a numbered set of scan files: create the next file, append records until it is full,
/// close it with the reasons for closing, repeat. Or reads one: open the next file, read its
/// records up to `zERR_END_OF_FILE`, close it, repeat until a file says that it is the last.
///
/// Statuses are 0, `zERR_INVALID_STATE` for a call in the wrong state, and those of failed system
/// calls (`SystemErrorStatus`); single calls name others. The constructor throws
/// std::invalid_argument. Used by one thread at a time.
class ZSBFile {
  public:
    /// `zsbFilePath` is a prefix of every file's path (it ends in "/" when it names a directory).
    /// Without a pool name the set is only read; without a scan ID a new one is generated.
    /// `compSpeed` is zlib's level; `sizeLimit` is the size in logical bytes at which a file is
    /// full.
    ZSBFile(const char* zsbFilePath, const std::string* givenPoolName, bool bypassing,
            const GUID_t* givenScanID, bool compressing, int set, unsigned long long blocks,
            int compSpeed, unsigned long long sizeLimit);

    /// Closes what is open: a file still being written as one that the operator stopped.
    virtual ~ZSBFile();
    ZSBFile(const ZSBFile&) = delete;
    ZSBFile& operator=(const ZSBFile&) = delete;

    /// Puts a prefix of at most 31 characters before the names of the files created from now on;
    /// returns the stored one. A longer one throws std::invalid_argument.
    const char* AppendNameSet(const char* text);
    void AppendNameClear();

    /// Creates the next file of the set (".ZSB", else ".ZRB"). `zERR_INVALID_STATE` while a file is
    /// being created or is open for reading, `zERR_BAD_PARAMETER_VALUE` for a set or file number
    /// that no name can hold.
    int CreateNext(bool zsb);

    /// Appends one record.
    int QuadAndBlockWrite(const QuadAndBlock_s* record);
    int ByteStreamWrite(const unsigned char* data, unsigned long length);

    /// Feed the compressor, without CRC and byte count. -2 when its output could not be written,
    /// `zERR_INVALID_STATE` in a raw file.
    int ByteStreamCompressionAndWrite(const unsigned char* data, unsigned long length);
    int QuadAndBlockCompressionAndWrite(const unsigned char* record);

    int DataWrite(const unsigned char* data, unsigned long length);
    void DataWriteOffsetUpdate(unsigned long length);
    /// Ends the compressed stream, if there is one, and flushes the file.
    int DataWriteFlush();

    /// Builds the header image from the members; returns 0.
    int HeaderFillIn(unsigned long flags);
    int HeaderWrite();

    /// Whether the current file has reached the size limit.
    bool CreateFull() const { return dataBytes >= maxFileSize; }
    /// How many records a full file holds; 0 when none is being created.
    unsigned long long BlocksInFileEstimateGet() const;

    /// Ends a compressed file's stream, and makes the compressor ready for the next;
    /// `zERR_INVALID_STATE` in a raw file.
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

    /// Open a file for reading: `directory` and `name` are joined as they stand. A file whose
    /// header is bad opens all the same; `OpenValidate` and `OpenSearch` tell. `zERR_INVALID_STATE`
    /// while a file is open or being created, `zERR_BAD_PARAMETER_VALUE` for a path of more than
    /// 1023 characters, `zERR_ZID_NOT_FOUND` when it cannot be opened, whatever the reason, which
    /// is logged.
    int Open(const char* name, const char* directory);
    int Open(const std::string& path);

    /// Which names are tried. What the first of the "any" modes finds sets the kind of name for all
    /// files after it.
    enum OpenMode {
        kOpenAny = 0,
        kOpenRawZSB = 1,
        kOpenCompressedZSB = 2,
        kOpenRawZRB = 3,
        kOpenCompressedZRB = 4,
        kOpenAnyZSB = 5,
        kOpenAnyZRB = 6,
        kOpenAnyRaw = 7,
        kOpenAnyCompressed = 8
    };

    /// Opens the file of the set that `OpenNext` has come to, with a mode of `OpenMode`; the
    /// numbers are only checked for what a name can hold (`zERR_BAD_PARAMETER_VALUE`).
    int Open(int mode, int file, int set);
    int OpenNext(int mode);
    /// Closes the file and goes on to the next number.
    int OpenNextClose();
    int OpenClose();

    /// Reads the header and tells whether it is one: `zERR_END_OF_FILE` for a file too short,
    /// `zERR_MEDIA_CORRUPTED` for one of another kind.
    int ReadAndValidateHeader();

    /// Reads every record and checks the file's CRC: `zSCAN_FILE_INVALID` when it does not match or
    /// there are no records.
    int OpenValidate();
    /// Finds the first record of a block; 0xFFFFFFFF when there is none.
    int OpenSearch(QuadAndBlock_s* out, unsigned long long block);

    /// Reads the next record; `zERR_END_OF_FILE` behind the last. `offset`, when given, receives
    /// where in the file the record was looked for.
    int QuadAndBlockRead(QuadAndBlock_s* out, unsigned long long* offset);
    /// Inflates the next record into 4104 bytes. `zINFLATE_ERROR_BASE` and zlib's result for
    /// damaged data, `zERR_BUFFER_TOO_SMALL` for a record of another length.
    int QuadAndBlockReadAndInflate(unsigned char* out);

    /// Reads exactly so many bytes at the data offset.
    int DataRead(unsigned char* data, unsigned long length);
    /// Reads up to so many bytes at the data offset; returns how many came.
    unsigned long DataRead2(unsigned char* data, unsigned long length);
    /// Skips so many bytes of the open file.
    void DataReadOffsetUpdate(unsigned long length);

    /// Reading of single records by an offset that `QuadAndBlockRead` reported:
    /// `zERR_COMPRESSION_NOT_ENABLED` for a compressed file, whose records have none.
    int RandomOpen(const std::string& path);
    int RandomRead(unsigned offset, QuadAndBlock_s* out);
    int RandomClose() { return OpenClose(); }

    /// Header flag 0x002 of the current file, 0 without one.
    std::uint32_t LastFile() const;
    /// How many records the current file's header claims, 0 without a file.
    unsigned long long BlocksInFileGet() const;
    /// The header's pool name, cut to `size` - 1 characters; the rest of `out` is cleared.
    void SFHGet_PoolName(char* out, unsigned size) const;
    /// Counts a warning of validation or search, which changes no status; its text is dropped.
    void QuadAndBlockWarningSet(const char* /*text*/) { warnings += 1; }
    /// How many warnings there were since a file was last opened.
    std::uint64_t WarningCount() const { return warnings; }
    /// The kind of name that an "any" mode settled on, as a format of set and file number, or null.
    const char* NamePattern() const { return namePattern; }

  private:
    int OpenInternal();
    int OpenByPattern(const char* pattern);
    int OpenFirst(std::span<const char* const> patterns);
    void RewindRecords();
    int CheckHeader() const;
    std::uint64_t RecordsEnd() const;
    int EndOfInflatedRecord(unsigned char* out);
    int InflateError(int result) const;
    int BeginCheck(std::uint64_t* records);
    void WarnAboutType(const QuadAndBlock_s& record);
    void WarnAboutOrder(const QuadAndBlock_s& record);
    int CheckCRC();

    bool NumbersFitName() const;
    std::string NextName(bool zsb) const;
    void BeginFile();
    int WriteCompressorOutput();
    std::uint32_t CreationFlags() const;
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
    std::uint64_t lastBlockNumber = 0;  // of the previous record; 0 for none
    bool open = false;
    bool inflating = false;
    std::uint32_t readFileNumber = 0;
    std::uint32_t readSetNumber = 0;
    PositionedStream readStream;
    const char* namePattern = nullptr;
    int openStatus = 0;  // of the header
    std::uint64_t warnings = 0;
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
    std::unique_ptr<Inflater> inflater;  // only while a compressed file is open
};
