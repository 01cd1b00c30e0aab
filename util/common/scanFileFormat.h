#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "util/common/guid.h"

// A scan file is a header of 660 bytes and the records behind it, raw or as one zlib stream:
//
//   scanFile := header data
//   data     := record*                the file's end is fileEof
//             | zlib(record*)          flag 0x001; one stream for each file, no framing inside
//   record   := blockNumber block      8 + 4096 bytes
//
// The header is written at creation, when it says that there are no records, and again at close: a
// file whose writer died reads as an empty one.

static_assert(std::endian::native == std::endian::little,
              "scan files are little-endian and their structures are read and written as they are");

inline constexpr std::uint32_t kPoolBlockSize = 4096;
inline constexpr unsigned kPoolBlockShift = 12;

inline constexpr std::uint32_t kScanFileSignature = 0x4E414353;  // "SCAN"
inline constexpr std::uint16_t kScanFileVersion = 2;
inline constexpr std::uint16_t kScanFileOldestVersion = 1;
inline constexpr std::uint16_t kScanFileRevision = 1;

/// The tool's version as it is stored in every scan file.
inline constexpr std::uint16_t gSCANVersionMajor = 1;
inline constexpr std::uint16_t gSCANVersionMinor = 1;

/// The CRC register before a file's first record; there is no inversion at the end either.
inline constexpr std::uint32_t kScanFileCrcStart = 0xFFFFFFFF;

/// Logical size at which the files of a save and of a restore count as full: 2555 records.
inline constexpr std::uint64_t kScanFileSizeLimit = 10'485'760;

inline constexpr int kMaxSetNumber = 99;
inline constexpr std::uint32_t kMaxFileNumber = 99'999;

enum ScanFileFlag : std::uint32_t {
    kFlagCompressed = 0x001,       ///< the data area is one zlib stream
    kFlagLastFile = 0x002,         ///< the dump reached the end of its range in this file
    kFlagRawAfterAll = 0x004,      ///< with 0x001: raw records all the same; read, never written
    kFlagUserStop = 0x008,         ///< closed before the dump finished
    kFlagStateChange = 0x010,      ///< the service asked to change the pool's state
    kFlagFourthCondition = 0x020,  ///< a close condition that no caller sets
    kFlagAlwaysWithCompressed = 0x040,
    kFlagError = 0x080,           ///< an error was recorded while the file was written
    kFlagUncheckedTypes = 0x100,  ///< records need not be system blocks; read, never written
    kFlagBypass = 0x200,          ///< the pool was not locked
};

/// The header as it stands in the file: little-endian, no padding.
struct __attribute__((packed)) ScanFileHeader_s {
    std::uint32_t signature;
    std::uint16_t headerVersion;
    std::uint16_t headerRevision;
    std::uint32_t createTime;  ///< UTC seconds
    std::uint32_t closeTime;   ///< UTC seconds; 0 until closed
    GUID_t scanID;             ///< the dump run; the same in every file of a set
    std::uint64_t poolBlocks;  ///< the device's size in blocks
    std::uint64_t fileEof;     ///< physical length in bytes, header included
    std::uint64_t dataBytes;   ///< 660 and the uncompressed length of all records
    std::uint32_t crc;         ///< running CRC of the uncompressed records, not inverted
    std::uint32_t flags;
    std::uint32_t fileNumber;       ///< in its set, from 0
    std::int32_t compressionLevel;  ///< zlib's level, also in raw files
    std::uint16_t versionMajor;     ///< the tool's
    std::uint16_t versionMinor;
    std::uint8_t reserved[68];
    char16_t poolName[256];  ///< each byte of the name widened
    std::uint32_t trailerSignature;
};

inline constexpr std::uint32_t kScanFileHeaderSize = 660;
static_assert(sizeof(ScanFileHeader_s) == kScanFileHeaderSize);
static_assert(offsetof(ScanFileHeader_s, poolBlocks) == 32);
static_assert(offsetof(ScanFileHeader_s, poolName) == 144);

/// The header's pool name: the low byte of each unit, which is all that any reader takes of it.
inline std::string PoolNameOf(const ScanFileHeader_s& header) {
    std::string name;
    for (std::size_t i = 0; i < std::size(header.poolName) && header.poolName[i] != 0; ++i) {
        name += static_cast<char>(header.poolName[i] & 0xFF);
    }
    return name;
}

/// One record of a scan file: a block's image and where it belongs.
struct QuadAndBlock_s {
    std::uint64_t blockNumber;
    char block[kPoolBlockSize];
};

inline constexpr std::uint32_t kRecordSize = 4104;
static_assert(sizeof(QuadAndBlock_s) == kRecordSize);

/// How many whole records a logical length of `dataBytes` holds behind the header.
constexpr std::uint64_t RecordsInDataBytes(std::uint64_t dataBytes) {
    return dataBytes < kScanFileHeaderSize ? 0 : (dataBytes - kScanFileHeaderSize) / kRecordSize;
}
