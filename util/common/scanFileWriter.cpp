#include "util/common/scanFileWriter.h"

#include <zlib.h>

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

ScanFileWriter::ScanFileWriter(ScanFileSettings settings) : settings_(std::move(settings)) {
    settings_.Check();
    scanID_ = settings_.scanID.has_value() ? *settings_.scanID : NewScanID();
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
    header_ = {};
    header_.signature = kScanFileSignature;
    header_.headerVersion = kScanFileVersion;
    header_.headerRevision = kScanFileRevision;
    header_.createTime = createTime_;
    header_.closeTime = closeTime_;
    header_.scanID = scanID_;
    header_.poolBlocks = settings_.poolBlocks;
    header_.fileEof = end_;
    header_.dataBytes = dataBytes_;
    header_.crc = crc_;
    header_.flags = flags;
    header_.fileNumber = fileNumber_;
    header_.compressionLevel = settings_.level;
    header_.versionMajor = gSCANVersionMajor;
    header_.versionMinor = gSCANVersionMinor;
    for (std::size_t i = 0; i < settings_.poolName.size(); ++i) {
        header_.poolName[i] = static_cast<unsigned char>(settings_.poolName[i]);
    }
    header_.trailerSignature = kScanFileSignature;
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
    deflater_->Offer({data, length});
    for (;;) {
        const int result = deflater_->Run(Z_NO_FLUSH);
        if (deflater_->OutputFull()) {
            const int status = WriteCompressorOutput();
            if (status != 0) {
                return status;
            }
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            LogLine() << "util/common/zsbFile[323] Deflate error: " << result << '\n';
            return Failed(result);
        } else if (deflater_->InputConsumed()) {
            return 0;
        }
    }
}

int ScanFileWriter::WriteCompressorOutput() {
    const std::span<unsigned char> output = deflater_->Output();
    const int status = WriteData(output.data(), output.size());
    if (status != 0) {
        Failed(status);
        return kOutputNotWritten;
    }
    deflater_->EmptyOutput();
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

int ScanFileWriter::FinishStream() {
    for (int result = Z_OK; result != Z_STREAM_END;) {
        result = deflater_->Run(Z_FINISH);
        if (result != Z_OK && result != Z_STREAM_END) {
            LogLine() << " Deflate should report Z_STREAM_END instead " << result << '\n';
            return result;
        }
        if (!deflater_->Output().empty()) {
            const int status = WriteCompressorOutput();
            if (status != 0) {
                return status;
            }
        }
    }
    return 0;
}

int ScanFileWriter::Flush() {
    if (!IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const int status = deflater_ != nullptr ? FinishStream() : 0;
    if (status != 0) {
        return status;
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

std::uint32_t ScanFileWriter::CloseFlags(const CloseReasons& reasons) const {
    return settings_.Flags() | (firstError_ != 0 ? kFlagError : 0U) |
           (reasons.lastFile ? kFlagLastFile : 0U) | (reasons.userStop ? kFlagUserStop : 0U) |
           (reasons.stateChange ? kFlagStateChange : 0U) |
           (reasons.fourth ? kFlagFourthCondition : 0U);
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
    const int streamStatus = deflater_ != nullptr ? EndCompression() : 0;
    closeTime_ = UTCSeconds();
    FillInHeader(CloseFlags(reasons));
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
