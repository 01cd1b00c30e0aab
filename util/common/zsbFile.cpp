#include "util/common/zsbFile.h"

#include <zlib.h>

#include <cstring>
#include <stdexcept>

#include "util/common/log.h"
#include "util/common/zlibStreams.h"

const std::uint16_t gSCANVersionMajor = 1;
const std::uint16_t gSCANVersionMinor = 1;

namespace {

constexpr std::size_t kMaxPoolName = 63;
constexpr std::size_t kPathSize = 512;
constexpr std::size_t kAppendSize = 32;
constexpr const char* kExpectedZlib = "1.2.11";

void CheckArguments(const char* path, const std::string* poolName, int compSpeed) {
    if (poolName != nullptr && poolName->size() > kMaxPoolName) {
        throw std::invalid_argument("Poolname is too long");
    }
    if (std::strlen(path) >= kPathSize) {
        throw std::invalid_argument("strlen( zsbFilePath ) >= sizeof( ZF_Path )");
    }
    // Levels below zlib's default are zlib's to refuse, whatever this text says.
    if (compSpeed > Z_BEST_COMPRESSION) {
        throw std::invalid_argument(
            "(compSpeed > Z_BEST_COMPRESSION) || (compSpeed != Z_DEFAULT_COMPRESSION)");
    }
}

void CheckZlib() {
    const char* version = zlibVersion();
    if (version[0] != '1') {
        throw std::invalid_argument("incompatible zlib version");
    }
    if (std::strcmp(version, kExpectedZlib) != 0) {
        LogLine() << "warning: different zlib version\n";
    }
}

GUID_t GivenOrNew(const GUID_t* scanID) {
    if (scanID != nullptr) {
        return *scanID;
    }
    GUID_t generated{};
    Ostrel::LB_GUIDGenerate(&generated);
    return generated;
}

}  // namespace

ZSBFile::ZSBFile(const char* zsbFilePath, const std::string* givenPoolName, bool bypassing,
                 const GUID_t* givenScanID, bool compressing, int set, unsigned long long blocks,
                 int compSpeed, unsigned long long sizeLimit)
    : setNumber(set),
      bypass(bypassing),
      compress(compressing),
      compLevel(compSpeed),
      poolBlocks(blocks),
      crc(kScanFileCrcStart),
      maxFileSize(sizeLimit) {
    CheckArguments(zsbFilePath, givenPoolName, compSpeed);
    CheckZlib();
    poolName = givenPoolName != nullptr ? *givenPoolName : "TheDefaultPoolNameForRead";
    ZF_Path = zsbFilePath;
    scanID = GivenOrNew(givenScanID);
    if (compress) {
        deflater = std::make_unique<Deflater>(compLevel);
    }
}

ZSBFile::~ZSBFile() {
    if (creating) {
        CreateClose(false, true, false, false, nullptr);
    }
    if (open) {
        OpenClose();
    }
}

const char* ZSBFile::AppendNameSet(const char* text) {
    if (std::strlen(text) >= kAppendSize) {
        throw std::invalid_argument("Append portion is too long");
    }
    appendPortion = text;
    appendSet = true;
    return appendPortion.c_str();
}

void ZSBFile::AppendNameClear() {
    appendPortion.clear();
    appendSet = false;
}

void ZSBFile::QuadAndBlockErrorSet(int status) {
    if (firstError == 0) {
        firstError = status;
    }
}

int ZSBFile::CopyZSBHeader(ScanFileHeader_s* out) const {
    *out = header;
    return 0;
}

void ZSBFile::SFHGet_ScanID(GUID_t* out) const {
    *out = header.scanID;
}

void ZSBFile::CurrentFullName(std::string& out) const {
    if (!nameValid) {
        throw std::runtime_error("No valid ZSB filename available at this time");
    }
    out = fullName;
}

bool ZSBFile::IsZSB() const {
    if (!nameValid) {
        throw std::runtime_error("No valid filename available at this time");
    }
    return isZSB;
}
