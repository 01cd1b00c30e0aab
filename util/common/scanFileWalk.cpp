#include "util/common/scanFileWalk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "util/common/errors.h"
#include "util/common/fileDescriptor.h"
#include "util/common/zlibStreams.h"

namespace {

constexpr std::uint32_t kRawFlags = kFlagCompressed | kFlagRawAfterAll;

/// errno of an open that failed, found by trying again: the reader tells nobody but the log.
int WhyNotOpened(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        return errno;
    }
    struct stat facts {};
    return fstat(file.Get(), &facts) == 0 && S_ISDIR(facts.st_mode) ? EISDIR : ESPIPE;
}

bool IsSystemError(int status) {
    constexpr int kMostErrors = 0xFFF;
    return status > zSYSTEM_ERROR_BASE && status <= zSYSTEM_ERROR_BASE + kMostErrors;
}

}  // namespace

ScanFileWalk::ScanFileWalk(const std::string& path) {
    OpenFile(path);
    if (end_ == End::kNone && !Believable()) {
        end_ = End::kHeader;
    }
    if (end_ == End::kNone && NeverClosed()) {
        // Its header still says that there is nothing behind it.
        ScanFileHeader_s open = header_;
        open.fileEof = bytes_;
        open.dataBytes = bytes_;
        reader_.UseHeader(open);
    }
}

void ScanFileWalk::OpenFile(const std::string& path) {
    if (reader_.Open(path) != 0) {
        end_ = End::kUnreadable;
        error_ = WhyNotOpened(path);
        return;
    }
    struct stat facts {};
    if (stat(path.c_str(), &facts) == 0) {
        bytes_ = static_cast<std::uint64_t>(facts.st_size);
    }
    const int status = reader_.HeaderStatus();
    hasHeader_ = status == 0 || status == zERR_MEDIA_CORRUPTED;
    header_ = reader_.Header();
    if (IsSystemError(status)) {
        end_ = End::kUnreadable;
        error_ = status - zSYSTEM_ERROR_BASE;
    }
}

bool ScanFileWalk::Believable() const {
    return hasHeader_ && (header_.signature == kScanFileSignature ||
                          header_.trailerSignature == kScanFileSignature);
}

std::optional<std::uint64_t> ScanFileWalk::Offset() const {
    return Compressed() || count_ == 0 ? std::nullopt
                                       : std::optional(reader_.Offset() - kRecordSize);
}

/// Whether what is left of a raw file's data is no whole record.
bool ScanFileWalk::PartLeft() const {
    const ScanFileHeader_s& header = reader_.Header();
    const std::uint64_t end =
        (header.flags & kRawFlags) == kRawFlags ? header.dataBytes : header.fileEof;
    return !Compressed() && reader_.Offset() < end && end - reader_.Offset() < kRecordSize;
}

bool ScanFileWalk::Next(QuadAndBlock_s* record) {
    if (end_ != End::kNone) {
        return false;
    }
    if (PartLeft()) {
        end_ = End::kPart;
        return false;
    }
    const int status = reader_.Read(record);
    if (status == 0) {
        count_ += 1;
        return true;
    }
    Stop(status);
    return false;
}

bool ScanFileWalk::Skip(std::uint64_t records) {
    if (!Compressed() && end_ == End::kNone) {
        reader_.Skip(records * kRecordSize);
        count_ += records;
        return true;
    }
    QuadAndBlock_s skipped;
    for (; records != 0 && Next(&skipped); --records) {
    }
    return records == 0;
}

void ScanFileWalk::Stop(int status) {
    if (Compressed()) {
        StopInflating(status);
    } else if (status == zERR_END_OF_FILE) {
        end_ = End::kData;
    } else if (IsSystemError(status)) {
        end_ = End::kUnreadable;
        error_ = status - zSYSTEM_ERROR_BASE;
    } else {
        end_ = End::kCut;
    }
}

void ScanFileWalk::StopInflating(int status) {
    const bool ranOut = status == zINFLATE_ERROR_BASE + Z_BUF_ERROR;
    if (status == zERR_BUFFER_TOO_SMALL) {
        end_ = End::kPart;
    } else if (status == zERR_END_OF_FILE && reader_.StreamEnded()) {
        end_ = End::kData;
    } else if (!ranOut && status != zERR_END_OF_FILE) {
        end_ = End::kStream;
    } else if (ranOut && reader_.Offset() < bytes_) {
        // There are bytes that nobody could give.
        end_ = End::kUnreadable;
        error_ = EIO;
    } else {
        end_ = bytes_ < header_.fileEof ? End::kCut : End::kStream;
    }
}
