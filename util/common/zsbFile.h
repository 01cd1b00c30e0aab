#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "util/common/guid.h"
#include "util/common/scanFileFormat.h"
#include "util/common/scanFileReader.h"
#include "util/common/scanFileWriter.h"

/// Writes a numbered set of scan files: create the next file, append records until it is full,
/// close it with the reasons for closing, repeat. Or reads one: open the next file, read its
/// records up to `zERR_END_OF_FILE`, close it, repeat until a file says that it is the last.
///
/// Statuses are 0, `zERR_INVALID_STATE` for a call in the wrong state, and those of failed system
/// calls (`SystemErrorStatus`); single calls name others. The constructor throws
/// std::invalid_argument. Used by one thread at a time.
///
/// It joins a writer and a reader of which one is at work at a time. The file last created or
/// opened gives the name, the header image, the data offset and the CRC that both share.
class ZSBFile {
  public:
    /// `zsbFilePath` is a prefix of every file's path (it ends in "/" when it names a directory).
    /// Without a pool name the set is only read; without a scan ID a new one is generated.
    /// `compSpeed` is zlib's level; `sizeLimit` is the size in logical bytes at which a file is
    /// full.
    ZSBFile(const char* zsbFilePath, const std::string* givenPoolName, bool bypassing,
            const GUID_t* givenScanID, bool compressing, int set, unsigned long long blocks,
            int compSpeed, unsigned long long sizeLimit);
    /// The same of a set whose settings are named.
    explicit ZSBFile(ScanFileSettings settings);

    /// For a set that is only read; its pool name is checked and not used. Throws as the
    /// constructor does.
    static std::unique_ptr<ZSBFile> ForReading(const char* zsbFilePath,
                                               const std::string* poolName = nullptr);

    /// Closes what is open: a file still being written as one that the operator stopped.
    virtual ~ZSBFile();
    ZSBFile(const ZSBFile&) = delete;
    ZSBFile& operator=(const ZSBFile&) = delete;

    /// Puts a prefix of at most 31 characters before the names of the files created from now on;
    /// returns the stored one. A longer one throws std::invalid_argument.
    const char* AppendNameSet(const char* text);
    /// Takes the prefix away again.
    void AppendNameClear();

    /// Creates the next file of the set (".ZSB", else ".ZRB"). `zERR_INVALID_STATE` while a file is
    /// being created or is open for reading, `zERR_BAD_PARAMETER_VALUE` for a set or file number
    /// that no name can hold.
    int CreateNext(bool zsb);

    /// Appends one record.
    int QuadAndBlockWrite(const QuadAndBlock_s* record);
    /// Appends bytes of records, which need not be whole ones.
    int ByteStreamWrite(const unsigned char* data, unsigned long length) {
        return writer_.Append(data, length);
    }

    /// Feed the compressor, without CRC and byte count. -2 when its output could not be written,
    /// `zERR_INVALID_STATE` in a raw file.
    int ByteStreamCompressionAndWrite(const unsigned char* data, unsigned long length) {
        return writer_.Compress(data, length);
    }
    int QuadAndBlockCompressionAndWrite(const unsigned char* record) {
        return writer_.Compress(record, kRecordSize);
    }

    /// Writes bytes as they are at the data offset, and moves it.
    int DataWrite(const unsigned char* data, unsigned long length) {
        return writer_.WriteData(data, length);
    }
    /// Moves the data offset, and the file's end with it; an offset before the end is logged.
    void DataWriteOffsetUpdate(unsigned long length);
    /// Ends the compressed stream, if there is one, and flushes the file.
    int DataWriteFlush() { return writer_.Flush(); }

    /// Builds the header image from the members; returns 0.
    int HeaderFillIn(unsigned long flags);
    /// Writes the header image to the front of the file being created.
    int HeaderWrite() { return writer_.WriteHeader(); }

    /// Whether the current file has reached the size limit.
    bool CreateFull() const { return writer_.Full(); }
    /// How many records a full file holds; 0 when none is being created.
    unsigned long long BlocksInFileEstimateGet() const;

    /// Ends a compressed file's stream, and makes the compressor ready for the next;
    /// `zERR_INVALID_STATE` in a raw file.
    int CreateCloseCompression() { return writer_.EndCompression(); }
    /// Ends the current file; the four conditions become header flags. `crcOut`, when given,
    /// receives the file's CRC if its header could be written. The file number advances whatever
    /// the result.
    int CreateClose(bool lastFile, bool userStop, bool stateChange, bool fourth,
                    unsigned long* crcOut);

    /// Keeps the first error of the current file, which marks its header.
    void QuadAndBlockErrorSet(int status) { writer_.RecordError(status); }
    /// Forgets it.
    void QuadAndBlockErrorClear() { writer_.ClearError(); }

    /// Copies the 660-byte header image; returns 0.
    int CopyZSBHeader(ScanFileHeader_s* out) const;
    /// Copies the header image's scan ID.
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
    /// Opens the next file of the set; the first is number 0 of set 0.
    int OpenNext(int mode);
    /// Closes the file and goes on to the next number.
    int OpenNextClose();
    /// Closes the file that is open for reading.
    int OpenClose() { return reader_.Close(); }

    /// Reads the header and tells whether it is one: `zERR_END_OF_FILE` for a file too short,
    /// `zERR_MEDIA_CORRUPTED` for one of another kind.
    int ReadAndValidateHeader() { return reader_.ReadHeader(); }

    /// How reading the open file's header ended, as `ReadAndValidateHeader` tells it.
    int HeaderStatus() const { return reader_.HeaderStatus(); }

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
    int QuadAndBlockReadAndInflate(unsigned char* out) { return reader_.InflateRecord(out); }

    /// Reads exactly so many bytes at the data offset.
    int DataRead(unsigned char* data, unsigned long length) {
        return reader_.ReadBytes(data, length);
    }
    /// Reads up to so many bytes at the data offset; returns how many came.
    unsigned long DataRead2(unsigned char* data, unsigned long length) {
        return reader_.ReadSomeBytes(data, length);
    }
    /// Skips so many bytes of the open file.
    void DataReadOffsetUpdate(unsigned long length);

    /// Reading of single records by an offset that `QuadAndBlockRead` reported:
    /// `zERR_COMPRESSION_NOT_ENABLED` for a compressed file, whose records have none.
    int RandomOpen(const std::string& path);
    /// Reads the record at `offset` (bytes from the file's start).
    int RandomRead(unsigned offset, QuadAndBlock_s* out) { return reader_.ReadAt(offset, out); }
    /// The same as `OpenClose`.
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
    bool AnyFileOpen() const { return writer_.IsOpen() || reader_.IsOpen(); }
    const ScanFileHeader_s& Header() const { return read_ ? reader_.Header() : writer_.Header(); }
    void SetName(const std::string& path, bool zsb);
    int OpenByPattern(const char* pattern);
    int OpenFirst(std::span<const char* const> patterns);

    ScanFileWriter writer_;
    ScanFileReader reader_;
    bool read_ = false;  // the file that stands was opened, not created
    bool trace = false;
    const std::string ZF_Path;
    std::string fullName;
    bool nameValid = false;
    bool isZSB = true;
    std::uint32_t readFileNumber = 0;
    const char* namePattern = nullptr;
    std::uint64_t warnings = 0;
};
