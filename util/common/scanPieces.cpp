#include "util/common/scanPieces.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <span>
#include <system_error>
#include <utility>

namespace {

FileDescriptor OpenFolder(const std::string& path) {
    FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return folder;
}

bool IsInflated(const ScanSetFile& file) {
    return file.Compressed() && (file.flags & kFlagRawAfterAll) == 0;
}

/// Reads as much as there is; what cannot be read ends it.
std::size_t ReadFrom(const FileDescriptor& file, std::uint64_t offset,
                     std::span<unsigned char> room) {
    std::size_t count = 0;
    while (count < room.size()) {
        const ssize_t came = pread64(file.Get(), room.data() + count, room.size() - count,
                                     static_cast<off64_t>(offset + count));
        if (came < 0 && errno == EINTR) {
            continue;
        }
        if (came <= 0) {
            break;
        }
        count += static_cast<std::size_t>(came);
    }
    return count;
}

}  // namespace

ScanPieces::ScanPieces(const ScanSet& set, const ScanSetIndex& index)
    : set_(set), index_(index), folder_(OpenFolder(set.Listing().folder)) {}

ScanPieces::Content ScanPieces::Get(std::size_t stretch) {
    std::promise<Content> promise;
    if (const auto kept = Claim(stretch, promise)) {
        return kept->get();
    }
    Content content;
    try {
        content = Load(index_.Stretches()[stretch]);
    } catch (const std::bad_alloc&) {
        content = nullptr;  // as good as unreadable
    }
    promise.set_value(content);
    if (content == nullptr) {
        const std::lock_guard lock(mutex_);
        std::erase_if(kept_, [stretch](const Kept& one) { return one.stretch == stretch; });
    }
    return content;
}

/// The stretch as somebody else has read it or is about to; nothing when it is the caller's turn,
/// who keeps the promise.
std::optional<std::shared_future<ScanPieces::Content>> ScanPieces::Claim(
    std::size_t stretch, std::promise<Content>& promise) {
    const std::lock_guard lock(mutex_);
    clock_ += 1;
    const auto kept = std::ranges::find(kept_, stretch, &Kept::stretch);
    if (kept != kept_.end()) {
        kept->used = clock_;
        return kept->content;
    }
    if (kept_.size() >= kMostPieces) {
        kept_.erase(std::ranges::min_element(kept_, {}, &Kept::used));
    }
    kept_.push_back({stretch, clock_, promise.get_future().share()});
    return {};
}

ScanPieces::Content ScanPieces::Load(const ScanStretch& stretch) {
    const ScanSetFile& about = set_.Files()[stretch.file];
    const FileDescriptor file(
        openat(folder_.Get(), about.name.Text().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) {
        return nullptr;
    }
    auto records = std::make_unique_for_overwrite<QuadAndBlock_s[]>(stretch.records);
    const std::span room(reinterpret_cast<unsigned char*>(records.get()),
                         std::size_t{stretch.records} * kRecordSize);
    const std::uint64_t offset = stretch.first * kRecordSize;
    const bool inflated = IsInflated(about);
    std::size_t count = 0;
    if (inflated) {
        const StreamSource source = [&file](std::uint64_t at, std::span<unsigned char> bytes) {
            return ReadFrom(file, kScanFileHeaderSize + at, bytes);
        };
        count = InflateAt(source, *PointsOf(stretch.file), offset, room);
        CountPoints(stretch.file);
    } else {
        count = ReadFrom(file, kScanFileHeaderSize + offset, room);
    }
    if (count != room.size()) {
        return nullptr;
    }
    return std::make_shared<const ScanStretchContent>(stretch, inflated, std::move(records));
}

std::shared_ptr<RestartPoints> ScanPieces::PointsOf(std::uint32_t file) {
    const std::lock_guard lock(mutex_);
    Points& points = points_[file];
    if (points.points == nullptr) {
        points.points = std::make_shared<RestartPoints>(kPointSpacing);
    }
    points.used = ++clock_;
    return points.points;
}

/// Takes note of the points that were found in a file, and forgets those of the files that nobody
/// has read for the longest time when there are too many.
void ScanPieces::CountPoints(std::uint32_t file) {
    const std::lock_guard lock(mutex_);
    const auto found = points_.find(file);
    if (found == points_.end()) {
        return;  // forgotten meanwhile
    }
    const std::size_t count = found->second.points->Count();
    pointCount_ = pointCount_ + count - found->second.count;
    found->second.count = count;
    while (pointCount_ > kMostPoints && points_.size() > 1) {
        const auto oldest = std::ranges::min_element(
            points_, {}, [](const auto& entry) { return entry.second.used; });
        pointCount_ -= oldest->second.count;
        points_.erase(oldest);
    }
}
