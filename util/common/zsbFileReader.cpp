#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/common/crc.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zlibStreams.h"
#include "util/common/zsbFile.h"

namespace {

constexpr std::size_t kReadBufferSize = 65'536;
constexpr std::size_t kMaxPathLength = 1023;

constexpr const char* kRawZSB = "T%02lu%05lu.ZSB";
constexpr const char* kCompressedZSB = "C%02lu%05lu.ZSB";
constexpr const char* kRawZRB = "T%02lu%05lu.ZRB";
constexpr const char* kCompressedZRB = "C%02lu%05lu.ZRB";

/// The patterns that an `OpenMode` tries, in order; a mode of one pattern is no choice.
struct Mode {
    const char* patterns[4];
    std::size_t count;
};

constexpr Mode kModes[] = {
    {{kRawZSB, kCompressedZSB, kRawZRB, kCompressedZRB}, 4},
    {{kRawZSB}, 1},
    {{kCompressedZSB}, 1},
    {{kRawZRB}, 1},
    {{kCompressedZRB}, 1},
    {{kRawZSB, kCompressedZSB}, 2},
    {{kRawZRB, kCompressedZRB}, 2},
    {{kRawZSB, kRawZRB}, 2},
    {{kCompressedZSB, kCompressedZRB}, 2},
};

/// Records are reached by seeking, so a pipe is refused, and opening one must not wait for a
/// writer. Returns 0 or errno.
int OpenSeekable(const char* path, FileDescriptor& file) {
    file = FileDescriptor(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat facts {};
    if (!file.IsOpen() || fstat(file.Get(), &facts) != 0) {
        return errno;
    }
    if (S_ISDIR(facts.st_mode)) {
        return EISDIR;
    }
    return S_ISFIFO(facts.st_mode) ? ESPIPE : 0;
}

bool NamesZSB(const std::string& name) {
    const std::size_t restorable = name.rfind(".ZRB");
    return restorable == std::string::npos || name.find(".ZSB", restorable) != std::string::npos;
}

}  // namespace

int ZSBFile::Open(const char* name, const char* directory) {
    return Open(std::string(directory) + name);
}

int ZSBFile::Open(const std::string& path) {
    if (open || creating) {
        return zERR_INVALID_STATE;
    }
    if (path.size() > kMaxPathLength) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    fullName = path;
    nameValid = true;
    return OpenInternal();
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int ZSBFile::Open(int mode, int file, int set) {
    if (set < 0 || set > kMaxSetNumber || file < 0 ||
        static_cast<std::uint32_t>(file) > kMaxFileNumber) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    if (open || creating) {
        return zERR_INVALID_STATE;
    }
    if (mode < 0 || static_cast<std::size_t>(mode) >= std::size(kModes)) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    const Mode& tried = kModes[mode];
    return tried.count == 1 ? OpenByPattern(tried.patterns[0])
                            : OpenFirst({tried.patterns, tried.count});
}

int ZSBFile::OpenByPattern(const char* pattern) {
    char name[32] = "";
    std::snprintf(name, sizeof name, pattern, static_cast<unsigned long>(readSetNumber),
                  static_cast<unsigned long>(readFileNumber));
    return Open(name, ZF_Path.c_str());
}

int ZSBFile::OpenFirst(std::span<const char* const> patterns) {
    if (namePattern != nullptr) {
        return OpenByPattern(namePattern);
    }
    for (const char* pattern : patterns) {
        const int status = OpenByPattern(pattern);
        if (status != zERR_ZID_NOT_FOUND) {
            namePattern = pattern;
            return status;
        }
    }
    namePattern = patterns.front();
    return zERR_ZID_NOT_FOUND;
}

int ZSBFile::OpenInternal() {
    if (trace) {
        LogLine() << "Opening ZSB File -- " << fullName << '\n';
    }
    if (open || !nameValid || readStream.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    isZSB = NamesZSB(fullName);
    FileDescriptor file;
    int error = OpenSeekable(fullName.c_str(), file);
    if (error == 0) {
        error = readStream.Adopt(std::move(file), "rb", kReadBufferSize);
    }
    if (error != 0) {
        LogLine() << "util/common/zsbFile[1782] Could not open " << fullName << " because "
                  << std::strerror(error) << '\n';
        return zERR_ZID_NOT_FOUND;
    }
    open = true;
    warnings = 0;
    RewindRecords();
    ReadAndValidateHeader();
    if (inflating) {
        inflater = std::make_unique<Inflater>();
    }
    return 0;
}

void ZSBFile::RewindRecords() {
    lastBlockNumber = 0;
    crc = kScanFileCrcStart;
    ZF_DataOffset = kScanFileHeaderSize;
}

int ZSBFile::OpenNext(int mode) {
    if (open) {
        return zERR_INVALID_STATE;
    }
    const int status =
        Open(mode, static_cast<int>(readFileNumber), static_cast<int>(readSetNumber));
    if (status == 0) {
        RewindRecords();
    }
    return status;
}

int ZSBFile::OpenNextClose() {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    const int status = OpenClose();
    readFileNumber += 1;
    return status;
}

int ZSBFile::OpenClose() {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    inflater.reset();
    inflating = false;
    open = false;
    return readStream.Close() == 0 ? 0 : LogSystemError("STATUS ZSBFile::OpenClose()");
}

int ZSBFile::ReadAndValidateHeader() {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    inflating = false;
    header = {};
    errno = 0;
    if (readStream.SeekTo(0) != 0 ||
        readStream.Read(&header, kScanFileHeaderSize) != kScanFileHeaderSize) {
        openStatus = readStream.AtEnd() ? zERR_END_OF_FILE : SystemErrorStatus(errno);
        header = {};
        return openStatus;
    }
    openStatus = CheckHeader();
    inflating = (header.flags & kFlagCompressed) != 0 && (header.flags & kFlagRawAfterAll) == 0;
    return openStatus;
}

int ZSBFile::CheckHeader() const {
    const bool good =
        header.signature == kScanFileSignature && header.trailerSignature == kScanFileSignature &&
        header.headerVersion >= kScanFileOldestVersion && header.headerVersion <= kScanFileVersion;
    return good ? 0 : zERR_MEDIA_CORRUPTED;
}

/// Where the records of a raw file end.
std::uint64_t ZSBFile::RecordsEnd() const {
    constexpr std::uint32_t both = kFlagCompressed | kFlagRawAfterAll;
    return (header.flags & both) == both ? header.dataBytes : header.fileEof;
}

int ZSBFile::QuadAndBlockRead(QuadAndBlock_s* out, unsigned long long* offset) {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    if (offset != nullptr) {
        *offset = ZF_DataOffset;
    }
    auto* bytes = reinterpret_cast<unsigned char*>(out);
    if (inflating) {
        const bool atEnd = ZF_DataOffset >= header.fileEof && !inflater->InputPending();
        return atEnd ? zERR_END_OF_FILE : QuadAndBlockReadAndInflate(bytes);
    }
    if (ZF_DataOffset >= RecordsEnd()) {
        return zERR_END_OF_FILE;
    }
    const int status = DataRead(bytes, kRecordSize);
    if (status == 0) {
        crc = Ostrel::updateCRC(crc, bytes, kRecordSize);
    }
    return status;
}

int ZSBFile::QuadAndBlockReadAndInflate(unsigned char* out) {
    if (!inflating) {
        return zERR_INVALID_STATE;
    }
    if (inflater->RoomLeft() != 0) {
        LogLine() << "util/common/zsbFile[1889] Error: 20010\n";
        return zERR_INVALID_STATE;
    }
    inflater->Offer({out, kRecordSize});
    while (inflater->RoomLeft() != 0) {
        if (!inflater->InputPending()) {
            const std::span<unsigned char> input = inflater->InputBuffer();
            inflater->Refilled(DataRead2(input.data(), input.size()));
        }
        const int result = inflater->Run();
        if (result == Z_STREAM_END) {
            return EndOfInflatedRecord(out);
        }
        if (result != Z_OK) {
            return InflateError(result);
        }
    }
    crc = Ostrel::updateCRC(crc, out, kRecordSize);
    return 0;
}

/// The stream has ended: between two records, with the last one, or inside one.
int ZSBFile::EndOfInflatedRecord(unsigned char* out) {
    const std::size_t length = kRecordSize - inflater->RoomLeft();
    if (length == 0) {
        // Nothing came, so nothing is incomplete: the next read finds the end again.
        inflater->Offer({});
        return zERR_END_OF_FILE;
    }
    crc = Ostrel::updateCRC(crc, out, length);
    if (length == kRecordSize) {
        return 0;
    }
    LogLine() << "util/common/zsbFile[1946] Size should be 4104 but is " << length
              << ".  Error: " << zERR_BUFFER_TOO_SMALL << '\n';
    return zERR_BUFFER_TOO_SMALL;
}

int ZSBFile::InflateError(int result) const {
    const int status = zINFLATE_ERROR_BASE + result;
    LogLine() << "util/common/zsbFile[1924] Error: " << status << "(err is " << result << ").\n";
    return status;
}

int ZSBFile::DataRead(unsigned char* data, unsigned long length) {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    errno = 0;  // the end of the file sets none
    if (readStream.SeekTo(ZF_DataOffset) != 0 || readStream.Read(data, length) != length) {
        const int status = LogSystemError("ZSBFile::DataRead:");
        LogLine() << "util/common/zsbFile[1837] Error reading destination file " << length << '\n';
        return status;
    }
    DataReadOffsetUpdate(length);
    return 0;
}

unsigned long ZSBFile::DataRead2(unsigned char* data, unsigned long length) {
    if (!open) {
        return 0;
    }
    errno = 0;
    const unsigned long count =
        readStream.SeekTo(ZF_DataOffset) == 0 ? readStream.Read(data, length) : 0;
    if (count == 0) {
        const int status = LogSystemError("ZSBFile::DataRead:");
        LogLine() << "util/common/zsbFile[1869] Error reading destination file " << length
                  << " status = " << status << '\n';
    }
    DataReadOffsetUpdate(count);
    return count;
}

void ZSBFile::DataReadOffsetUpdate(unsigned long length) {
    // A file being written keeps its own place here.
    if (open) {
        ZF_DataOffset += length;
    }
}

std::uint32_t ZSBFile::LastFile() const {
    return open || creating ? header.flags & kFlagLastFile : 0;
}

unsigned long long ZSBFile::BlocksInFileGet() const {
    return open || creating ? RecordsInDataBytes(header.dataBytes) : 0;
}

void ZSBFile::SFHGet_PoolName(char* out, unsigned size) const {
    std::fill_n(out, size, '\0');
    for (unsigned i = 0; i + 1 < size && i < std::size(header.poolName); ++i) {
        const std::uint16_t unit = header.poolName[i];
        if (unit == 0) {
            return;
        }
        out[i] = static_cast<char>(unit & 0xFF);
    }
}
