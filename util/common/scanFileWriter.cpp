#include "util/common/scanFileWriter.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "util/common/clock.h"
#include "util/common/crc.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zlibStreams.h"

namespace {

constexpr std::size_t kPrefixSize = 32;
/// What the compressing calls return when the compressor's output could not be written.
constexpr int kOutputNotWritten = -2;

std::uint32_t UTCSeconds() {
    return static_cast<std::uint32_t>(Ostrel::GetUTCTime());
}

GUID_t NewScanID() {
    GUID_t generated{};
    Ostrel::LB_GUIDGenerate(&generated);
    return generated;
}

}  // namespace

std::uint32_t CloseReasons::Flags() const {
    return (lastFile ? kFlagLastFile : 0U) | (userStop ? kFlagUserStop : 0U) |
           (stateChange ? kFlagStateChange : 0U) | (fourth ? kFlagFourthCondition : 0U);
}

ScanFileWriter::ScanFileWriter(ScanFileSettings settings)
    : settings_(std::move(settings)),
      scanID_(settings_.scanID.has_value() ? *settings_.scanID : NewScanID()) {
    settings_.Check();
    fileNumber_ = settings_.firstFile;
    if (settings_.compress) {
        deflater_ = std::make_unique<Deflater>(settings_.level);
    }
}

ScanFileWriter::~ScanFileWriter() {
    if (IsOpen()) {
        Close({.userStop = true}, nullptr);
    }
}

const std::string& ScanFileWriter::SetPrefix(const std::string& prefix) {
    if (prefix.size() >= kPrefixSize) {
        throw std::invalid_argument("Append portion is too long");
    }
    return prefix_ = prefix;
}

std::optional<std::string> ScanFileWriter::NextPath(bool zsb) const {
    const std::optional<std::string> name = settings_.FileName(fileNumber_, zsb);
    return name.has_value() ? std::optional(settings_.path + prefix_ + *name) : std::nullopt;
}

void ScanFileWriter::Begin() {
    offset_ = end_ = dataBytes_ = kScanFileHeaderSize;
    createTime_ = UTCSeconds();
    closeTime_ = 0;
    crc_ = kScanFileCrcStart;
    if (deflater_ != nullptr) {
        deflater_->EmptyOutput();
    }
}

int ScanFileWriter::Create(bool zsb) {
    if (IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const std::optional<std::string> path = NextPath(zsb);
    if (!path.has_value()) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    Begin();
    // Records go out one write each; a buffer would only copy them.
    const int error = stream_.Open(path->c_str(), "wb", 0);
    if (error != 0) {
        LogLine() << "Could not create " << *path << " because " << std::strerror(error) << '\n';
        return SystemErrorStatus(error);
    }
    // From here on the file reads as an empty one, should the writer die. A header that cannot be
    // written now is told by the close, which writes it again.
    FillInHeader(settings_.Flags());
    WriteHeader();
    ClearError();
    return 0;
}

void ScanFileWriter::FillInHeader(std::uint32_t flags) {
    header_ = settings_.Header();
    header_.createTime = createTime_;
    header_.closeTime = closeTime_;
    header_.scanID = scanID_;
    header_.fileEof = end_;
    header_.dataBytes = dataBytes_;
    header_.crc = crc_;
    header_.flags = flags;
    header_.fileNumber = fileNumber_;
}

/// Writes at an offset of the file; what fails is logged as `what`.
int ScanFileWriter::WriteAt(std::uint64_t offset, std::span<const unsigned char> bytes,
                            const char* what) {
    int error = stream_.SeekTo(offset);
    if (error == 0) {
        const StreamTransfer written = stream_.Write(bytes.data(), bytes.size());
        if (written.count == bytes.size()) {
            return 0;
        }
        error = written.error;
    }
    return LogSystemError(what, error);
}

int ScanFileWriter::WriteHeader() {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const auto* image = reinterpret_cast<const unsigned char*>(&header_);
    const int status = WriteAt(0, {image, kScanFileHeaderSize}, "ZSBFile::WriteHeader()");
    if (status != 0) {
        LogLine() << "util/common/zsbFile[503] Error writing to destination file 660 bytes.\n";
    }
    return status;
}

int ScanFileWriter::Append(const unsigned char* data, unsigned long length) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    // A record that cannot be written counts in the CRC all the same, and not in the length.
    crc_ = Ostrel::updateCRC(crc_, data, length);
    const int status = deflater_ != nullptr ? Compress(data, length) : WriteData(data, length);
    if (status != 0) {
        return Failed(status);
    }
    dataBytes_ += length;
    return 0;
}

int ScanFileWriter::Compress(const unsigned char* data, unsigned long length) {
    if (!IsOpen() || deflater_ == nullptr) {
        return zERR_INVALID_STATE;
    }
    const int result =
        deflater_->Compress({data, length}, [this](auto output) { return WriteOutput(output); });
    return result == 0 ? 0 : Failed(result);
}

/// Writes the compressor's output; the reason why it cannot is recorded and logged.
int ScanFileWriter::WriteOutput(std::span<const unsigned char> output) {
    const int status = WriteData(output.data(), output.size());
    if (status != 0) {
        Failed(status);
        return kOutputNotWritten;
    }
    return 0;
}

int ScanFileWriter::WriteData(const unsigned char* data, unsigned long length) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const int status = WriteAt(offset_, {data, length}, "ZSBFile::Write:");
    if (status != 0) {
        LogLine() << "util/common/zsbFile[480] Error writing to destination file " << length
                  << " bytes.\n";
        return status;
    }
    MoveOffset(length);
    return 0;
}

void ScanFileWriter::MoveOffset(unsigned long length) {
    offset_ += length;
    ReachEnd(offset_);
}

void ScanFileWriter::ReachEnd(std::uint64_t offset) {
    if (offset >= end_) {
        end_ = offset;
    } else {
        LogLine() << "ZF_DataOffset not > than ZF_CreateEof" << end_ << ' ' << offset << '\n';
    }
}

int ScanFileWriter::Flush() {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    if (deflater_ != nullptr) {
        const int status = deflater_->Finish([this](auto output) { return WriteOutput(output); });
        if (status != 0) {
            return status;
        }
    }
    const int error = stream_.Flush();
    return error == 0 ? 0 : LogSystemError("STATUS ZSBFile::DataWriteFlush()", error);
}

int ScanFileWriter::EndCompression() {
    if (!IsOpen() || deflater_ == nullptr) {
        return zERR_INVALID_STATE;
    }
    const int status = Flush();
    if (status != 0) {
        Failed(status);
    }
    // Whatever became of this file, the next begins a stream of its own.
    const int result = deflater_->Reset();
    if (result != Z_OK) {
        LogLine() << "deflateReset error: " << result << '\n';
    }
    return status;
}

void ScanFileWriter::RecordError(int status) {
    if (firstError_ == 0) {
        firstError_ = status;
    }
}

void ScanFileWriter::ClearError() {
    firstError_ = 0;
    failed_ = false;
}

/// Records an error that the caller is told.
int ScanFileWriter::Failed(int status) {
    RecordError(status);
    failed_ = true;
    return status;
}

std::uint64_t ScanFileWriter::RecordsOfAFullFile() const {
    // The limit less the header, rounded up to whole records.
    return (settings_.sizeLimit + kRecordSize - 1 - kScanFileHeaderSize) / kRecordSize;
}

int ScanFileWriter::CloseStream() {
    int status = 0;
    for (const int error : {stream_.Flush(), stream_.Close()}) {
        if (error != 0) {
            const int failed = LogSystemError(
                "STATUS ZSBFile::CreateClose(bool, bool, bool, bool, long unsigned int*)", error);
            status = status != 0 ? status : failed;
        }
    }
    return status;
}

int ScanFileWriter::Close(const CloseReasons& reasons, unsigned long* crcOut) {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    // What failed before the close has been told, and fails the end of the stream again.
    const bool told = failed_;
    // The end of the stream comes first: it moves the file's end, and may set the error flag, both
    // of which the header tells.
    const int streamStatus = deflater_ != nullptr ? EndCompression() : 0;
    closeTime_ = UTCSeconds();
    FillInHeader(settings_.Flags() | reasons.Flags() | (firstError_ != 0 ? kFlagError : 0U));
    const int headerStatus = WriteHeader();
    if (headerStatus == 0 && crcOut != nullptr) {
        *crcOut = crc_;
    }
    const int closeStatus = CloseStream();
    fileNumber_ += 1;
    if (headerStatus != 0) {
        return headerStatus;
    }
    return streamStatus != 0 && !told ? streamStatus : closeStatus;
}
