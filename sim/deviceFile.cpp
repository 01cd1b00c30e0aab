#include "sim/deviceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "sim/textTools.h"

namespace sim {
namespace {

constexpr std::uint64_t kBlockSize = 4096;

}  // namespace

std::vector<BadBlocks> BadBlocksFromText(const std::string& list, bool failReads, bool failWrites) {
    std::vector<BadBlocks> bad;
    for (const std::string& piece : Split(list, ',')) {
        const auto ends = Split(piece, '-');
        const auto first = ToNumber(ends.front());
        const auto last = ToNumber(ends.back());
        if (ends.size() > 2 || !first || !last || *last < *first) {
            return {};
        }
        bad.push_back({*first, *last, failReads, failWrites});
    }
    return bad;
}

std::shared_ptr<DeviceFile> DeviceFile::Open(const std::string& path) {
    int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (descriptor < 0) {
        return nullptr;
    }
    // The end of a block device is its size too, where st_size would be 0.
    const off_t size = lseek(descriptor, 0, SEEK_END);
    if (size < 0) {
        close(descriptor);
        return nullptr;
    }
    return std::make_shared<DeviceFile>(descriptor, static_cast<std::uint64_t>(size));
}

DeviceFile::~DeviceFile() {
    close(descriptor_);
}

int DeviceFile::Read(std::span<char> buffer, std::uint64_t offset) {
    // A short count would be taken for the end of the file and filled up with zeros, so one bad
    // block fails the whole call, as a disk fails a whole request.
    if (Fails(offset, buffer.size(), false)) {
        return -EIO;
    }
    const auto count = pread(descriptor_, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    return count < 0 ? -errno : static_cast<int>(count);
}

int DeviceFile::Write(std::string_view bytes, std::uint64_t offset) {
    if (offset + bytes.size() > size_) {
        return -ENOSPC;
    }
    if (Fails(offset, bytes.size(), true)) {
        return -EIO;
    }
    const auto count = pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    return count < 0 ? -errno : static_cast<int>(count);
}

int DeviceFile::Sync() {
    return fsync(descriptor_) == 0 ? 0 : -errno;
}

void DeviceFile::SetBadBlocks(std::vector<BadBlocks> bad) {
    const std::scoped_lock lock(mutex_);
    bad_ = std::move(bad);
}

std::vector<BadBlocks> DeviceFile::Bad() const {
    const std::scoped_lock lock(mutex_);
    return bad_;
}

bool DeviceFile::Fails(std::uint64_t offset, std::uint64_t length, bool writing) const {
    if (length == 0) {
        return false;
    }
    const std::uint64_t first = offset / kBlockSize;
    const std::uint64_t last = (offset + length - 1) / kBlockSize;
    const std::scoped_lock lock(mutex_);
    return std::any_of(bad_.begin(), bad_.end(), [&](const BadBlocks& bad) {
        return bad.first <= last && first <= bad.last && (writing ? bad.failWrites : bad.failReads);
    });
}

}  // namespace sim
