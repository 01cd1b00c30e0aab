#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "util/common/fileDescriptor.h"
#include "util/common/scanSet.h"
#include "util/common/scanSetBlocks.h"
#include "util/common/scanSetIndex.h"
#include "util/common/seekableInflater.h"

/// The stretches of a set's index, read when they are asked for and from wherever they stand, in
/// compressed files too. Those used last are kept; of compressed files it keeps restart points,
/// since these take a thirtieth of what they save to inflate again. Memory is bounded whatever the
/// set: `kMostPieces` stretches and those in use, and `kMostPoints` points. Used by any number of
/// threads at once.
class ScanPieces {
  public:
    /// A stretch takes 1 MiB then, which a few milliseconds inflate.
    static constexpr std::uint32_t kPieceRecords = 256;
    static constexpr std::uint64_t kPointSpacing = std::uint64_t{kPieceRecords} * kRecordSize;
    static constexpr std::size_t kMostPieces = 16;
    static constexpr std::size_t kMostPoints = 1'024;

    /// Both must stay as long as this; the folder is kept open, so that what is mounted over it, or
    /// a change of the current folder, does not matter. Throws std::system_error.
    ScanPieces(const ScanSet& set, const ScanSetIndex& index);

    /// The records of a stretch, by its place in the index. Null when they cannot be read any more.
    std::shared_ptr<const ScanStretchContent> Get(std::size_t stretch);

  private:
    using Content = std::shared_ptr<const ScanStretchContent>;
    struct Kept {
        std::size_t stretch;
        std::uint64_t used;  // when
        std::shared_future<Content> content;
    };
    struct Points {
        std::shared_ptr<RestartPoints> points;
        std::size_t count = 0;   // as it was when the file was last read
        std::uint64_t used = 0;  // when
    };

    std::optional<std::shared_future<Content>> Claim(std::size_t stretch,
                                                     std::promise<Content>& promise);
    Content Load(const ScanStretch& stretch);
    std::shared_ptr<RestartPoints> PointsOf(std::uint32_t file);
    void CountPoints(std::uint32_t file);

    const ScanSet& set_;
    const ScanSetIndex& index_;
    const FileDescriptor folder_;

    std::mutex mutex_;  // of what stands below
    std::uint64_t clock_ = 0;
    std::vector<Kept> kept_;
    std::unordered_map<std::uint32_t, Points> points_;  // by the file's place in the set
    std::size_t pointCount_ = 0;
};
