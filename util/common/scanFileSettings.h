#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "util/common/guid.h"
#include "util/common/scanFileFormat.h"

/// What the scan files of one set have in common.
struct ScanFileSettings {
    std::string path;  ///< put before every file's name as it stands
    std::string poolName = "TheDefaultPoolNameForRead";  ///< at most 63 characters
    bool bypass = false;                                 ///< the pool is not locked
    std::optional<GUID_t> scanID{};  ///< of the run; without one a new one is generated
    bool compress = false;
    int setNumber = 0;
    std::uint64_t poolBlocks = 0;                  ///< the device's size in blocks
    int level = -1;                                ///< zlib's, -1 its default
    std::uint64_t sizeLimit = kScanFileSizeLimit;  ///< logical bytes at which a file is full
    std::uint32_t firstFile = 0;                   ///< the number that the set begins with

    /// Throws std::invalid_argument for what no set can have, and for a zlib that is none.
    void Check() const;

    /// The flags that every file of the set carries.
    std::uint32_t Flags() const;

    /// A header with the fields that are the same in all files of the set, but for the scan ID.
    ScanFileHeader_s Header() const;

    /// The name of a file of the set, ".ZSB" or else ".ZRB"; none when a number is more than a name
    /// can hold.
    std::optional<std::string> FileName(std::uint32_t fileNumber, bool zsb) const;
};
