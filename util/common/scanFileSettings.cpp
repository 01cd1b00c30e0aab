#include "util/common/scanFileSettings.h"

#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "util/common/log.h"

namespace {

constexpr std::size_t kMaxPoolName = 63;
constexpr std::size_t kPathSize = 512;
constexpr const char* kExpectedZlib = "1.2.11";

void CheckZlib() {
    const char* version = zlibVersion();
    if (version[0] != '1') {
        throw std::invalid_argument("incompatible zlib version");
    }
    if (std::strcmp(version, kExpectedZlib) != 0) {
        LogLine() << "warning: different zlib version\n";
    }
}

}  // namespace

void ScanFileSettings::Check() const {
    if (poolName.size() > kMaxPoolName) {
        throw std::invalid_argument("Poolname is too long");
    }
    if (path.size() >= kPathSize) {
        throw std::invalid_argument("strlen( zsbFilePath ) >= sizeof( ZF_Path )");
    }
    // Levels below zlib's default are zlib's to refuse, whatever this text says.
    if (level > Z_BEST_COMPRESSION) {
        throw std::invalid_argument(
            "(compSpeed > Z_BEST_COMPRESSION) || (compSpeed != Z_DEFAULT_COMPRESSION)");
    }
    CheckZlib();
}

std::uint32_t ScanFileSettings::Flags() const {
    return (compress ? kFlagCompressed | kFlagAlwaysWithCompressed : 0U) |
           (bypass ? kFlagBypass : 0U);
}

ScanFileHeader_s ScanFileSettings::Header() const {
    ScanFileHeader_s header{};
    header.signature = header.trailerSignature = kScanFileSignature;
    header.headerVersion = kScanFileVersion;
    header.headerRevision = kScanFileRevision;
    header.poolBlocks = poolBlocks;
    header.compressionLevel = level;
    header.versionMajor = gSCANVersionMajor;
    header.versionMinor = gSCANVersionMinor;
    for (std::size_t i = 0; i < poolName.size(); ++i) {
        header.poolName[i] = static_cast<unsigned char>(poolName[i]);
    }
    return header;
}

std::optional<std::string> ScanFileSettings::FileName(std::uint32_t fileNumber, bool zsb) const {
    if (setNumber < 0 || setNumber > kMaxSetNumber || fileNumber > kMaxFileNumber) {
        return std::nullopt;
    }
    char numbers[16] = "";
    std::snprintf(numbers, sizeof numbers, "%c%02d%05d", compress ? 'C' : 'T', setNumber,
                  static_cast<int>(fileNumber));
    return std::string(numbers) + (zsb ? ".ZSB" : ".ZRB");
}
