#include "util/common/scanFileMaker.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "util/common/scanFileReader.h"
#include "util/common/zlibStreams.h"

namespace {

constexpr std::size_t kPiece = 262'144;  // goes to the system at once
constexpr std::uint32_t kCompressionFlags = kFlagCompressed | kFlagAlwaysWithCompressed;

}  // namespace

std::uint32_t ScanForm::Flags(std::uint32_t flags) const {
    return (flags & ~kCompressionFlags) | (compressed ? kCompressionFlags : 0U);
}

ScanFileHeader_s ReadScanFileHeader(const std::string& path) {
    ScanFileReader reader;
    reader.Open(path);
    return reader.Header();
}

ScanFileMaker::ScanFileMaker(std::string path, const ScanForm& form)
    : path_(std::move(path)),
      form_(form),
      file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
    if (!file_.IsOpen()) {
        Fail(errno);
    }
    if (form_.compressed) {
        deflater_ = std::make_unique<Deflater>(form_.level);
    }
    kept_.reserve(kPiece + kRecordSize);
}

ScanFileMaker::~ScanFileMaker() = default;

void ScanFileMaker::Fail(int error) const {
    throw std::system_error(error, std::generic_category(), path_);
}

void ScanFileMaker::WriteAt(std::uint64_t offset, std::span<const unsigned char> bytes) const {
    while (!bytes.empty()) {
        const ssize_t count =
            pwrite(file_.Get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno != EINTR) {
            Fail(errno);
        }
        const std::size_t written = count < 0 ? 0 : static_cast<std::size_t>(count);
        bytes = bytes.subspan(written);
        offset += written;
    }
}

void ScanFileMaker::WriteKept() {
    WriteAt(end_, kept_);
    end_ += kept_.size();
    kept_.clear();
}

void ScanFileMaker::Keep(std::span<const unsigned char> bytes) {
    kept_.insert(kept_.end(), bytes.begin(), bytes.end());
    if (kept_.size() >= kPiece) {
        WriteKept();
    }
}

void ScanFileMaker::Append(const QuadAndBlock_s& record) {
    const std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(&record),
                                               kRecordSize);
    if (deflater_ == nullptr) {
        Keep(bytes);
        return;
    }
    const auto keep = [this](std::span<const unsigned char> output) {
        Keep(output);
        return 0;
    };
    if (deflater_->Compress(bytes, keep) != 0) {
        throw std::bad_alloc();  // the compressor refuses nothing else
    }
}

void ScanFileMaker::Finish(ScanFileHeader_s header) {
    if (deflater_ != nullptr) {
        const auto keep = [this](std::span<const unsigned char> output) {
            Keep(output);
            return 0;
        };
        if (deflater_->Finish(keep) != 0) {
            throw std::bad_alloc();
        }
    }
    WriteKept();
    header.flags = form_.Flags(header.flags);
    header.fileEof = end_;
    WriteAt(0, {reinterpret_cast<const unsigned char*>(&header), kScanFileHeaderSize});
    // The disk begins while the next file is made, so that a sync at the end has little to wait
    // for.
    sync_file_range(file_.Get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    file_ = FileDescriptor();
}
