#include "util/ostrelscan/poolDevice.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "util/common/scanFileFormat.h"

namespace {

constexpr std::uint64_t kUnknownSize = 12'288;

/// Behind the last block whose byte offset the system can express. A damaged number must not wrap
/// round to a block at the front of the device.
constexpr std::uint64_t kBlockLimit = std::uint64_t{1} << (63 - kPoolBlockShift);

off64_t ByteOffset(std::uint64_t block) {
    return static_cast<off64_t>(block << kPoolBlockShift);
}

/// The device's size in bytes where it can tell.
std::optional<std::uint64_t> SizeOf(int descriptor) {
    std::uint64_t size = 0;
    if (ioctl(descriptor, BLKGETSIZE64, &size) == 0) {
        return size;
    }
    return {};
}

/// The block behind the last one, as far as anybody knows.
std::uint64_t EndOf(int descriptor) {
    struct stat facts {};
    if (const std::optional<std::uint64_t> size = SizeOf(descriptor)) {
        return *size >> kPoolBlockShift;
    }
    const bool file = fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
    return file ? static_cast<std::uint64_t>(facts.st_size) >> kPoolBlockShift : kBlockLimit;
}

/// pread of one block that a signal does not cut short.
StreamTransfer ReadBlockAt(int descriptor, void* buffer, std::uint64_t block) {
    ssize_t count = 0;
    do {
        count = pread64(descriptor, buffer, kPoolBlockSize, ByteOffset(block));
    } while (count < 0 && errno == EINTR);
    return count < 0 ? StreamTransfer{.error = errno}
                     : StreamTransfer{.count = static_cast<std::size_t>(count)};
}

}  // namespace

void PoolDevice::ForgetFailures() {
    stretchStart_ = stretchEnd_ = 0;
    direct_ = FileDescriptor();
    directTried_ = false;
}

int PoolDevice::Open(const char* path, const char* mode, std::size_t bufferSize) {
    ForgetFailures();
    failures_ = {};
    readBlocks_ = std::max(bufferSize >> kPoolBlockShift, std::size_t{1});
    return stream_.Open(path, mode, bufferSize);
}

int PoolDevice::OpenForReading(const char* path) {
    return Open(path, "r", kStretchBlocks << kPoolBlockShift);
}

int PoolDevice::OpenForWriting(const char* path) {
    struct stat facts {};
    // The mode creates what is missing: a mistyped device must not become a file.
    return stat(path, &facts) == 0 ? Open(path, "w+", 0) : errno;
}

int PoolDevice::SeekTo(std::uint64_t block) {
    if (block >= kBlockLimit) {
        return EINVAL;
    }
    const int error = stream_.SeekTo(block << kPoolBlockShift);
    // The first seek reads: a device that fails there has failed at its start.
    if (stream_.TakeFillFailure()) {
        BeginFailedStretch(0);
    }
    return error;
}

void PoolDevice::BeginFailedStretch(std::uint64_t block) {
    stretchStart_ = block;
    stretchEnd_ = (block / kStretchBlocks + 1) * kStretchBlocks;
    failures_.Failed(block, std::min(block + readBlocks_, stretchEnd_),
                     EndOf(stream_.Descriptor()));
}

bool PoolDevice::InFailedStretch(std::uint64_t block) const {
    return block >= stretchStart_ && block < stretchEnd_;
}

BlockTransfer PoolDevice::Read(char* buffer, std::uint64_t block) {
    const BlockTransfer transfer = TryRead(buffer, block);
    failures_.Tried(block, transfer.outcome == BlockTransfer::Outcome::Done);
    return transfer;
}

BlockTransfer PoolDevice::TryRead(char* buffer, std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    if (!InFailedStretch(block)) {
        const int seekError = SeekTo(block);
        if (seekError != 0) {
            return {SeekFailed, seekError};
        }
    }
    if (InFailedStretch(block)) {
        return ReadAlone(buffer, block);
    }
    const StreamTransfer read = stream_.Read(buffer, kPoolBlockSize);
    if (read.count == kPoolBlockSize) {
        return {Done};
    }
    if (read.error != 0) {
        BeginFailedStretch(block);
        return ReadAlone(buffer, block);
    }
    return {read.ended ? AtEnd : Short};
}

BlockTransfer PoolDevice::ReadAlone(char* buffer, std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    OpenDirectly();
    StreamTransfer read{.error = EINVAL};  // what cannot be read directly says so
    if (direct_.IsOpen()) {
        read = ReadDirectly(buffer, block);
    }
    if (read.error == EINVAL) {
        read = ReadUncached(buffer, block);
    }
    if (read.error != 0) {
        return {Failed, read.error};
    }
    return {read.count == kPoolBlockSize ? Done : AtEnd};
}

BlockTransfer PoolDevice::Write(const char* buffer, std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    const int seekError = SeekTo(block);
    if (seekError != 0) {
        return {SeekFailed, seekError};
    }
    const StreamTransfer written = stream_.Write(buffer, kPoolBlockSize);
    if (written.count == kPoolBlockSize) {
        return {Done};
    }
    if (written.error != 0) {
        return {Failed, written.error};
    }
    return {written.ended ? AtEnd : Short};
}

/// Opens what the stream has open, not what the path may name by now.
void PoolDevice::OpenDirectly() {
    if (!directTried_) {
        directTried_ = true;
        const std::string same = "/proc/self/fd/" + std::to_string(stream_.Descriptor());
        direct_ = FileDescriptor(open(same.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC));
    }
}

StreamTransfer PoolDevice::ReadDirectly(char* buffer, std::uint64_t block) {
    alignas(kPoolBlockSize) char aligned[kPoolBlockSize];
    const StreamTransfer read = ReadBlockAt(direct_.Get(), aligned, block);
    std::memcpy(buffer, aligned, read.count);
    return read;
}

/// For what cannot be read directly: without read-ahead, and without what the cache made of the
/// stretch before.
StreamTransfer PoolDevice::ReadUncached(char* buffer, std::uint64_t block) {
    const int descriptor = stream_.Descriptor();
    posix_fadvise64(descriptor, 0, 0, POSIX_FADV_RANDOM);
    posix_fadvise64(descriptor, ByteOffset(stretchStart_ / kStretchBlocks * kStretchBlocks),
                    ByteOffset(kStretchBlocks), POSIX_FADV_DONTNEED);
    const StreamTransfer read = ReadBlockAt(descriptor, buffer, block);
    posix_fadvise64(descriptor, 0, 0, POSIX_FADV_NORMAL);
    return read;
}

int PoolDevice::Close() {
    ForgetFailures();
    return stream_.Close();
}

std::uint64_t PoolDevice::MeasureBlocks(const char* path) {
    const FileDescriptor device(open(path, O_RDONLY | O_CLOEXEC));
    if (!device.IsOpen()) {
        return 2;
    }
    const std::uint64_t size = SizeOf(device.Get()).value_or(kUnknownSize);
    return size >= kPoolBlockSize ? size >> kPoolBlockShift : 1;
}
