#include "util/ostrelscan/poolDevice.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <span>
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

/// How many bytes it takes at once, where it can tell.
std::uint64_t RequestOf(int descriptor) {
    constexpr unsigned kSectorShift = 9;
    unsigned short sectors = 0;
    ioctl(descriptor, BLKSECTGET, &sectors);
    return std::uint64_t{sectors} << kSectorShift;
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

/// pread of blocks that a signal does not cut short.
StreamTransfer ReadBlocksAt(int descriptor, std::span<char> blocks, std::uint64_t first) {
    ssize_t count = 0;
    do {
        count = pread64(descriptor, blocks.data(), blocks.size(), ByteOffset(first));
    } while (count < 0 && errno == EINTR);
    return count < 0 ? StreamTransfer{.error = errno}
                     : StreamTransfer{.count = static_cast<std::size_t>(count)};
}

}  // namespace

void PoolDevice::ForgetWindow() {
    windowStart_ = windowEnd_ = 0;
    failed_.reset();
}

void PoolDevice::Forget() {
    ForgetWindow();
    cache_ = {};
    stretchStart_ = stretchEnd_ = distrustEnd_ = 0;
    direct_ = FileDescriptor();
    directTried_ = false;
}

int PoolDevice::Open(const char* path, const char* mode, std::uint64_t windowBlocks) {
    Forget();
    failures_ = {};
    windowBlocks_ = windowBlocks;
    if (window_ == nullptr) {
        window_ = std::make_unique_for_overwrite<Room>();
    }
    return stream_.Open(path, mode, 0);
}

int PoolDevice::OpenForReading(const char* path) {
    const int error = Open(path, "r", kWindowBlocks);
    if (error == 0) {
        cache_.Begin(stream_.Descriptor(), RequestOf(stream_.Descriptor()));
    }
    return error;
}

int PoolDevice::OpenForWriting(const char* path) {
    struct stat facts {};
    // The mode creates what is missing: a mistyped device must not become a file.
    return stat(path, &facts) == 0 ? Open(path, "w+", 1) : errno;
}

int PoolDevice::SeekTo(std::uint64_t block) {
    return block < kBlockLimit ? stream_.SeekTo(block << kPoolBlockShift) : EINVAL;
}

bool PoolDevice::InWindow(std::uint64_t block) const {
    return block >= windowStart_ && block < windowEnd_;
}

BlockTransfer PoolDevice::FillWindow(std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    const std::uint64_t blocks = WindowBlocks(block);
    const std::uint64_t whole = block / blocks * blocks;
    const std::uint64_t start = block == windowEnd_ ? block : whole;
    ForgetWindow();
    for (const std::uint64_t place : {block, start}) {
        const int seekError = SeekTo(place);
        if (seekError != 0) {
            return {SeekFailed, seekError};
        }
    }
    windowStart_ = windowEnd_ = start;
    StreamTransfer read;
    do {
        read = ReadOn(whole + blocks);
    } while (windowEnd_ <= block && read.error == 0 && !read.ended);
    if (read.error != 0) {
        failed_ = windowEnd_;
        cache_.HaveFailed();
    }
    return {read.ended ? AtEnd : Short};
}

StreamTransfer PoolDevice::ReadOn(std::uint64_t end) {
    const std::size_t size = (end - windowEnd_) << kPoolBlockShift;
    const std::span<char> room{window_->blocks[windowEnd_ - windowStart_], size};
    cache_.WillRead(windowEnd_ << kPoolBlockShift);
    const StreamTransfer read =
        IsDistrusted(windowEnd_) ? ReadDirectly(room, windowEnd_) : ReadCached(room);
    windowEnd_ += read.count >> kPoolBlockShift;
    return read;
}

StreamTransfer PoolDevice::ReadCached(std::span<char> room) {
    const auto start = std::chrono::steady_clock::now();
    const StreamTransfer read = stream_.ReadUnits(room, kPoolBlockSize);
    cache_.HaveRead(std::chrono::steady_clock::now() - start);
    return read;
}

void PoolDevice::BeginFailedStretch(std::uint64_t block) {
    stretchStart_ = block;
    stretchEnd_ = (block / kStretchBlocks + 1) * kStretchBlocks;
    const std::uint64_t blocks = WindowBlocks(block);
    failures_.Failed(block, (block / blocks + 1) * blocks, EndOf(stream_.Descriptor()));
    distrustEnd_ = stretchEnd_ + kDistrustBlocks;
}

bool PoolDevice::IsDistrusted(std::uint64_t block) const {
    return direct_.IsOpen() && windowBlocks_ == kWindowBlocks && block < distrustEnd_;
}

std::uint64_t PoolDevice::WindowBlocks(std::uint64_t block) const {
    if (IsDistrusted(block)) {
        return kStretchBlocks;
    }
    return cache_.MakesWait() ? kLargestWindow : windowBlocks_;
}

bool PoolDevice::InFailedStretch(std::uint64_t block) const {
    return block >= stretchStart_ && block < stretchEnd_;
}

BlockView PoolDevice::View(std::uint64_t block) {
    const BlockView view = TryRead(block);
    failures_.Tried(block, view.transfer.outcome == BlockTransfer::Outcome::Done);
    return view;
}

BlockTransfer PoolDevice::Read(char* buffer, std::uint64_t block) {
    const BlockView view = View(block);
    if (view.bytes != nullptr) {
        std::memcpy(buffer, view.bytes, kPoolBlockSize);
    }
    return view.transfer;
}

BlockView PoolDevice::TryRead(std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    if (InFailedStretch(block)) {
        return ReadAlone(block);
    }
    BlockTransfer filled{Short};
    if (!InWindow(block) && failed_ != block) {
        filled = FillWindow(block);
    }
    if (!InWindow(block) && failed_.has_value()) {
        BeginFailedStretch(*failed_);
        return ReadAlone(block);
    }
    if (!InWindow(block)) {
        return {filled};
    }
    return {{Done}, window_->blocks[block - windowStart_]};
}

BlockView PoolDevice::ReadAlone(std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    ForgetWindow();
    OpenDirectly();
    StreamTransfer read{.error = EINVAL};  // what cannot be read directly says so
    if (direct_.IsOpen()) {
        read = ReadDirectly(window_->blocks[0], block);
    }
    if (read.error == EINVAL) {
        direct_ = FileDescriptor();
        read = ReadUncached(block);
    }
    if (read.error != 0) {
        return {{Failed, read.error}};
    }
    if (read.count != kPoolBlockSize) {
        return {{AtEnd}};
    }
    return {{Done}, window_->blocks[0]};
}

BlockTransfer PoolDevice::Write(const char* buffer, std::uint64_t block) {
    using enum BlockTransfer::Outcome;
    ForgetWindow();  // what it holds may be what changes
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

StreamTransfer PoolDevice::ReadDirectly(std::span<char> room, std::uint64_t block) const {
    StreamTransfer read = ReadBlocksAt(direct_.Get(), room, block);
    read.ended = read.error == 0 && read.count < kPoolBlockSize;
    return read;
}

/// For what cannot be read directly: without read-ahead, and without what the cache made of the
/// stretch before.
StreamTransfer PoolDevice::ReadUncached(std::uint64_t block) {
    const int descriptor = stream_.Descriptor();
    posix_fadvise64(descriptor, 0, 0, POSIX_FADV_RANDOM);
    posix_fadvise64(descriptor, ByteOffset(stretchStart_ / kStretchBlocks * kStretchBlocks),
                    ByteOffset(kStretchBlocks), POSIX_FADV_DONTNEED);
    const StreamTransfer read = ReadBlocksAt(descriptor, window_->blocks[0], block);
    posix_fadvise64(descriptor, 0, 0, POSIX_FADV_NORMAL);
    return read;
}

int PoolDevice::Close() {
    Forget();
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
