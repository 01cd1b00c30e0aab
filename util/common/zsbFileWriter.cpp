#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/common/clock.h"
#include "util/common/crc.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zlibStreams.h"
#include "util/common/zsbFile.h"

namespace {

constexpr unsigned kCompressedFlags = kFlagCompressed | kFlagAlwaysWithCompressed;
/// What the compressing calls return when the compressor's output could not be written.
constexpr int kOutputNotWritten = -2;

std::uint32_t UTCSeconds() {
    return static_cast<std::uint32_t>(Ostrel::GetUTCTime());
}

}  // namespace

bool ZSBFile::NumbersFitName() const {
    return setNumber >= 0 && setNumber <= kMaxSetNumber && fileNumber <= kMaxFileNumber;
}

std::string ZSBFile::NextName(bool zsb) const {
    char numbers[16] = "";
    std::snprintf(numbers, sizeof numbers, "%c%02d%05d", compress ? 'C' : 'T', setNumber,
                  static_cast<int>(fileNumber));
    return (appendSet ? appendPortion : "") + numbers + (zsb ? ".ZSB" : ".ZRB");
}

void ZSBFile::BeginFile() {
    ZF_DataOffset = kScanFileHeaderSize;
    dataBytes = kScanFileHeaderSize;
    ZF_CreateEof = kScanFileHeaderSize;
    createTime = UTCSeconds();
    closeTime = 0;
    crc = kScanFileCrcStart;
    if (compress) {
        deflater->EmptyOutput();
    }
}

int ZSBFile::CreateNext(bool zsb) {
    if (creating || open) {
        return zERR_INVALID_STATE;
    }
    if (!NumbersFitName()) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    BeginFile();
    fullName = ZF_Path + NextName(zsb);
    if (trace) {
        LogLine() << "Creating file called " << fullName << '\n';
    }
    nameValid = true;
    isZSB = zsb;
    // Records go out one write each; a buffer would only copy them.
    const int error = writeStream.Open(fullName.c_str(), "wb", 0);
    if (error != 0) {
        LogLine() << "Could not create " << fullName << " because " << std::strerror(error) << '\n';
        return SystemErrorStatus(error);
    }
    HeaderFillIn(CreationFlags());
    HeaderWrite();
    QuadAndBlockErrorClear();
    creating = true;
    return 0;
}

int ZSBFile::HeaderFillIn(unsigned long flags) {
    header = {};
    header.signature = kScanFileSignature;
    header.headerVersion = kScanFileVersion;
    header.headerRevision = kScanFileRevision;
    header.createTime = createTime;
    header.closeTime = closeTime;
    header.scanID = scanID;
    header.poolBlocks = poolBlocks;
    header.fileEof = ZF_CreateEof;
    header.dataBytes = dataBytes;
    header.crc = crc;
    header.flags = static_cast<std::uint32_t>(flags);
    header.fileNumber = fileNumber;
    header.compressionLevel = compLevel;
    header.versionMajor = gSCANVersionMajor;
    header.versionMinor = gSCANVersionMinor;
    for (std::size_t i = 0; i < poolName.size(); ++i) {
        header.poolName[i] = static_cast<unsigned char>(poolName[i]);
    }
    header.trailerSignature = kScanFileSignature;
    return 0;
}

int ZSBFile::HeaderWrite() {
    // The creation writes it before the file counts as created.
    if (!writeStream.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    if (writeStream.SeekTo(0) != 0 || !writeStream.Write(&header, kScanFileHeaderSize)) {
        const int status = LogSystemError("ZSBFile::WriteHeader()");
        LogLine() << "util/common/zsbFile[503] Error writing to destination file 660 bytes.\n";
        return status;
    }
    return 0;
}

int ZSBFile::QuadAndBlockWrite(const QuadAndBlock_s* record) {
    return ByteStreamWrite(reinterpret_cast<const unsigned char*>(record), kRecordSize);
}

int ZSBFile::ByteStreamWrite(const unsigned char* data, unsigned long length) {
    if (!creating) {
        return zERR_INVALID_STATE;
    }
    crc = Ostrel::updateCRC(crc, data, length);
    const int status =
        compress ? ByteStreamCompressionAndWrite(data, length) : DataWrite(data, length);
    if (status != 0) {
        QuadAndBlockErrorSet(status);
        return status;
    }
    dataBytes += length;
    return 0;
}

int ZSBFile::WriteCompressorOutput() {
    const std::span<unsigned char> output = deflater->Output();
    const int status = DataWrite(output.data(), output.size());
    if (status != 0) {
        QuadAndBlockErrorSet(status);
        return kOutputNotWritten;
    }
    deflater->EmptyOutput();
    return 0;
}

int ZSBFile::ByteStreamCompressionAndWrite(const unsigned char* data, unsigned long length) {
    if (!creating || !compress) {
        return zERR_INVALID_STATE;
    }
    deflater->Offer({data, length});
    for (;;) {
        const int result = deflater->Run(Z_NO_FLUSH);
        if (deflater->OutputFull()) {
            const int status = WriteCompressorOutput();
            if (status != 0) {
                return status;
            }
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            LogLine() << "util/common/zsbFile[323] Deflate error: " << result << '\n';
            QuadAndBlockErrorSet(result);
            return result;
        } else if (deflater->InputConsumed()) {
            return 0;
        }
    }
}

int ZSBFile::QuadAndBlockCompressionAndWrite(const unsigned char* record) {
    return ByteStreamCompressionAndWrite(record, kRecordSize);
}

int ZSBFile::DataWrite(const unsigned char* data, unsigned long length) {
    if (!creating) {
        return zERR_INVALID_STATE;
    }
    if (writeStream.SeekTo(ZF_DataOffset) != 0 ||
        (length != 0 && !writeStream.Write(data, length))) {
        const int status = LogSystemError("ZSBFile::Write:");
        LogLine() << "util/common/zsbFile[480] Error writing to destination file " << length
                  << " bytes.\n";
        return status;
    }
    DataWriteOffsetUpdate(length);
    return 0;
}

void ZSBFile::DataWriteOffsetUpdate(unsigned long length) {
    ZF_DataOffset += length;
    if (ZF_DataOffset >= ZF_CreateEof) {
        ZF_CreateEof = ZF_DataOffset;
    } else {
        LogLine() << "ZF_DataOffset not > than ZF_CreateEof" << ZF_CreateEof << ' ' << ZF_DataOffset
                  << '\n';
    }
}

int ZSBFile::DataWriteFlush() {
    if (!creating) {
        return zERR_INVALID_STATE;
    }
    for (int result = Z_OK; compress && result != Z_STREAM_END;) {
        result = deflater->Run(Z_FINISH);
        if (result != Z_OK && result != Z_STREAM_END) {
            LogLine() << " Deflate should report Z_STREAM_END instead " << result << '\n';
            return result;
        }
        if (!deflater->Output().empty()) {
            const int status = WriteCompressorOutput();
            if (status != 0) {
                return status;
            }
        }
    }
    return writeStream.Flush() == 0 ? 0 : LogSystemError("STATUS ZSBFile::DataWriteFlush()");
}

unsigned long long ZSBFile::BlocksInFileEstimateGet() const {
    // The limit less the header, rounded up to whole records.
    return creating ? (maxFileSize + kRecordSize - 1 - kScanFileHeaderSize) / kRecordSize : 0;
}

int ZSBFile::CreateCloseCompression() {
    if (!creating || !compress) {
        return zERR_INVALID_STATE;
    }
    const int status = DataWriteFlush();
    if (status != 0) {
        QuadAndBlockErrorSet(status);
    }
    const int result = deflater->Reset();
    if (result != Z_OK) {
        LogLine() << "deflateReset error: " << result << '\n';
    }
    return status;
}

std::uint32_t ZSBFile::CreationFlags() const {
    return (compress ? kCompressedFlags : 0U) | (bypass ? kFlagBypass : 0U);
}

std::uint32_t ZSBFile::CloseFlags(bool lastFile, bool userStop, bool stateChange,
                                  bool fourth) const {
    return CreationFlags() | (firstError != 0 ? kFlagError : 0U) | (lastFile ? kFlagLastFile : 0U) |
           (userStop ? kFlagUserStop : 0U) | (stateChange ? kFlagStateChange : 0U) |
           (fourth ? kFlagFourthCondition : 0U);
}

int ZSBFile::CloseStream() {
    const char* what = "STATUS ZSBFile::CreateClose(bool, bool, bool, bool, long unsigned int*)";
    const int flushStatus = writeStream.Flush() == 0 ? 0 : LogSystemError(what);
    const int closeStatus = writeStream.Close() == 0 ? 0 : LogSystemError(what);
    return flushStatus != 0 ? flushStatus : closeStatus;
}

int ZSBFile::CreateClose(bool lastFile, bool userStop, bool stateChange, bool fourth,
                         unsigned long* crcOut) {
    if (!creating) {
        return zERR_INVALID_STATE;
    }
    // An error from before the close has been returned to the caller already.
    const bool errorKnown = firstError != 0;
    int status = 0;
    if (compress) {
        const int compressionStatus = CreateCloseCompression();
        status = errorKnown ? 0 : compressionStatus;
    }
    closeTime = UTCSeconds();
    HeaderFillIn(CloseFlags(lastFile, userStop, stateChange, fourth));
    const int headerStatus = HeaderWrite();
    if (headerStatus == 0 && crcOut != nullptr) {
        *crcOut = crc;
    }
    const int closeStatus = CloseStream();
    for (const int later : {headerStatus, closeStatus}) {
        status = status != 0 ? status : later;
    }
    fileNumber += 1;
    nameValid = false;
    creating = false;
    return status;
}
