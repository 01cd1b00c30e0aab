#include "util/common/scanFileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "util/common/crc.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zlibStreams.h"

namespace {

constexpr std::size_t kReadBufferSize = 65'536;

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

int InflateError(int result) {
    const int status = zINFLATE_ERROR_BASE + result;
    LogLine() << "util/common/zsbFile[1924] Error: " << status << "(err is " << result << ").\n";
    return status;
}

}  // namespace

ScanFileReader::ScanFileReader() = default;

ScanFileReader::~ScanFileReader() {
    if (IsOpen()) {
        Close();
    }
}

int ScanFileReader::Open(const std::string& path) {
    if (IsOpen()) {
        return zERR_INVALID_STATE;
    }
    FileDescriptor file;
    int error = OpenSeekable(path.c_str(), file);
    if (error == 0) {
        error = stream_.Adopt(std::move(file), "rb", kReadBufferSize);
    }
    if (error != 0) {
        LogLine() << "util/common/zsbFile[1782] Could not open " << path << " because "
                  << std::strerror(error) << '\n';
        return zERR_ZID_NOT_FOUND;
    }
    // A file with a bad header opens all the same: the checks tell it, and what its header allows
    // can be read.
    Rewind();
    TakeHeader(ReadFrom(0, &header_, kScanFileHeaderSize));
    return 0;
}

int ScanFileReader::Close() {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    inflater_.reset();
    inflating_ = false;
    const int error = stream_.Close();
    return error == 0 ? 0 : LogSystemError("STATUS ZSBFile::OpenClose()", error);
}

StreamTransfer ScanFileReader::ReadFrom(std::uint64_t offset, void* bytes, std::size_t size) {
    const int error = stream_.SeekTo(offset);
    return error == 0 ? stream_.Read(bytes, size) : StreamTransfer{.error = error};
}

int ScanFileReader::ReadHeader() {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    // Past the stream's buffer: a file may be completed while it is open.
    return TakeHeader(stream_.ReadPastBuffer(0, &header_, kScanFileHeaderSize));
}

/// Judges the header that was just read, so far as it came.
int ScanFileReader::TakeHeader(const StreamTransfer& read) {
    inflating_ = false;
    if (read.count != kScanFileHeaderSize) {
        headerStatus_ = read.ended ? zERR_END_OF_FILE : SystemErrorStatus(read.error);
        header_ = {};
        return headerStatus_;
    }
    headerStatus_ = CheckHeader();
    inflating_ = (header_.flags & kFlagCompressed) != 0 && (header_.flags & kFlagRawAfterAll) == 0;
    // Read again in the middle of a file, the header leaves the stream where it is.
    if (inflating_ && inflater_ == nullptr) {
        inflater_ = std::make_unique<Inflater>();
    }
    return headerStatus_;
}

int ScanFileReader::CheckHeader() const {
    const bool good = header_.signature == kScanFileSignature &&
                      header_.trailerSignature == kScanFileSignature &&
                      header_.headerVersion >= kScanFileOldestVersion &&
                      header_.headerVersion <= kScanFileVersion;
    return good ? 0 : zERR_MEDIA_CORRUPTED;
}

bool ScanFileReader::StreamEnded() const {
    return inflater_ != nullptr && inflater_->Ended();
}

std::uint64_t ScanFileReader::TakenUpTo() const {
    return inflating_ ? offset_ - inflater_->InputLeft() : offset_;
}

void ScanFileReader::Rewind() {
    crc_ = kScanFileCrcStart;
    offset_ = kScanFileHeaderSize;
    if (inflater_ != nullptr) {
        inflater_->Reset();
    }
}

/// Where the records of a raw file end.
std::uint64_t ScanFileReader::RecordsEnd() const {
    constexpr std::uint32_t both = kFlagCompressed | kFlagRawAfterAll;
    return (header_.flags & both) == both ? header_.dataBytes : header_.fileEof;
}

int ScanFileReader::Read(QuadAndBlock_s* out) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    auto* bytes = reinterpret_cast<unsigned char*>(out);
    if (inflating_) {
        // The file may be at its end while records still wait in the last input.
        const bool atEnd = offset_ >= header_.fileEof && !inflater_->InputPending();
        return atEnd ? zERR_END_OF_FILE : InflateRecord(bytes);
    }
    if (offset_ >= RecordsEnd()) {
        return zERR_END_OF_FILE;
    }
    const int status = ReadBytes(bytes, kRecordSize);
    if (status == 0) {
        crc_ = Ostrel::updateCRC(crc_, bytes, kRecordSize);
    }
    return status;
}

int ScanFileReader::ReadAt(std::uint64_t offset, QuadAndBlock_s* out) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    offset_ = offset;
    return Read(out);
}

int ScanFileReader::InflateRecord(unsigned char* out) {
    if (!inflating_) {
        return zERR_INVALID_STATE;
    }
    if (inflater_->RoomLeft() != 0) {
        LogLine() << "util/common/zsbFile[1889] Error: 20010\n";
        return zERR_INVALID_STATE;
    }
    inflater_->Offer({out, kRecordSize});
    while (inflater_->RoomLeft() != 0) {
        // A file that ends too early refills nothing; zlib then says what it lacks.
        if (!inflater_->InputPending()) {
            const std::span<unsigned char> input = inflater_->InputBuffer();
            inflater_->Refilled(ReadSomeBytes(input.data(), input.size()));
        }
        const int result = inflater_->Run();
        if (result == Z_STREAM_END) {
            return EndOfStream(out);
        }
        if (result != Z_OK) {
            return InflateError(result);
        }
    }
    crc_ = Ostrel::updateCRC(crc_, out, kRecordSize);
    return 0;
}

/// The stream has ended: between two records, with the last one, or inside one.
int ScanFileReader::EndOfStream(const unsigned char* out) {
    const std::size_t length = kRecordSize - inflater_->RoomLeft();
    if (length == 0) {
        // Nothing came, so nothing is incomplete: the next read finds the end again.
        inflater_->Offer({});
        return zERR_END_OF_FILE;
    }
    // A part of a record counts, too, so that the checksum shows that there was one.
    crc_ = Ostrel::updateCRC(crc_, out, length);
    if (length == kRecordSize) {
        return 0;
    }
    LogLine() << "util/common/zsbFile[1946] Size should be 4104 but is " << length
              << ".  Error: " << zERR_BUFFER_TOO_SMALL << '\n';
    return zERR_BUFFER_TOO_SMALL;
}

int ScanFileReader::ReadBytes(unsigned char* data, unsigned long length) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const StreamTransfer read = ReadFrom(offset_, data, length);
    if (read.count != length) {
        const int status = LogSystemError("ZSBFile::DataRead:", read.error);
        LogLine() << "util/common/zsbFile[1837] Error reading destination file " << length << '\n';
        return status;
    }
    Skip(length);
    return 0;
}

unsigned long ScanFileReader::ReadSomeBytes(unsigned char* data, unsigned long length) {
    if (!IsOpen()) {
        return 0;
    }
    const StreamTransfer read = ReadFrom(offset_, data, length);
    if (read.count == 0) {
        const int status = LogSystemError("ZSBFile::DataRead:", read.error);
        LogLine() << "util/common/zsbFile[1869] Error reading destination file " << length
                  << " status = " << status << '\n';
    }
    Skip(read.count);
    return read.count;
}
