#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "util/common/scanFileFormat.h"
#include "util/common/scanFileStudy.h"

/// Goes through the records of several sets by their block numbers. A file is open from its lowest
/// block to its highest, so of sets whose files follow each other one file each is open at a time.
/// Used by one thread at a time.
class ScanSetUnion {
  public:
    /// A file as its study found it: its blocks ascend.
    struct File {
        std::string path;
        std::size_t set = 0;
        BlockRange range;
        std::uint64_t records = 0;
    };

    /// One set's record of a block.
    struct Copy {
        std::size_t set = 0;
        const QuadAndBlock_s* record = nullptr;
    };

    explicit ScanSetUnion(std::vector<File> files);
    ~ScanSetUnion();
    ScanSetUnion(const ScanSetUnion&) = delete;
    ScanSetUnion& operator=(const ScanSetUnion&) = delete;

    // Both throw std::system_error for a file that can no longer be read, and std::runtime_error
    // for one that has changed since its study; copies that were given before are gone.

    /// Whether there is no further block.
    bool AtEnd();
    /// All copies of the next block, by their sets; none at the end.
    std::span<const Copy> Next();

  private:
    class Stream;

    static bool Later(const std::unique_ptr<Stream>& a, const std::unique_ptr<Stream>& b);
    void Push(std::unique_ptr<Stream> stream);
    void GoOn();

    std::vector<File> files_;                     // by their lowest blocks
    std::size_t next_ = 0;                        // the first file that was not opened yet
    std::vector<std::unique_ptr<Stream>> open_;   // a heap: the lowest block first, then by sets
    std::vector<std::unique_ptr<Stream>> taken_;  // those of the copies last given
    std::vector<Copy> copies_;
};
