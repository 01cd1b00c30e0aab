#pragma once

#include <iosfwd>

/// The range of blocks of a run. The last block 0 means up to the end of the device.
struct ScanOptions {
    ScanOptions(unsigned long long first, unsigned long long last) : start(first), end(last) {}

    unsigned long long start;
    unsigned long long end;
};

/// What a save was asked to do. The texts are borrowed for the whole run.
struct DumpOptions : ScanOptions {
    DumpOptions(unsigned long long first, unsigned long long last, bool compressed,
                // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
                const char* device, const char* pool, const char* directory, bool withSectors)
        : ScanOptions(first, last),
          sectors(withSectors),
          compress(compressed),
          poolName(pool),
          deviceName(device),
          path(directory) {}

    bool sectors;
    bool compress;
    const char* poolName;
    const char* deviceName;
    const char* path;  ///< directory of the scan files, ending in "/"
};

/// What a restore was asked to do. The texts are borrowed for the whole run.
struct RestoreOptions : ScanOptions {
    // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
    RestoreOptions(const char* device, const char* pool, const char* directory)
        : ScanOptions(0, 0), deviceName(device), poolName(pool), path(directory) {}

    const char* deviceName;
    const char* poolName;
    const char* path;  ///< directory of the scan files, ending in "/"
};

/// Write the record as one `<Options>` element, a line for each field, texts unescaped and numbers
/// in the stream's base. A missing text writes nothing and sets the stream's failure bit.
std::ostream& operator<<(std::ostream& stream, const DumpOptions& options);
/// Leaves the device out.
std::ostream& operator<<(std::ostream& stream, const RestoreOptions& options);
