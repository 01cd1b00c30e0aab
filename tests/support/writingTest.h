#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/poolBlocks.h"
#include "tests/support/scanFileParts.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/zsbFile.h"

namespace support {

inline constexpr GUID_t kScanID{0x01020304, 0x0506, 0x0708, 0x89, 0x0a, {11, 12, 13, 14, 15, 16}};

/// How a writer is made; a test changes what it is about.
struct WriterSettings {
    std::optional<std::string> poolName = "DATA";
    const GUID_t* scanID = &kScanID;
    bool bypass = true;
    bool compress = false;
    int setNumber = 0;
    unsigned long long poolBlocks = 4096;
    int level = -1;
    unsigned long long limit = kScanFileSizeLimit;
};

/// A writer of files whose paths begin with `path`.
inline std::unique_ptr<ZSBFile> MakeWriter(const std::string& path,
                                           const WriterSettings& settings = {}) {
    const std::string* poolName = settings.poolName.has_value() ? &*settings.poolName : nullptr;
    return std::make_unique<ZSBFile>(path.c_str(), poolName, settings.bypass, settings.scanID,
                                     settings.compress, settings.setNumber, settings.poolBlocks,
                                     settings.level, settings.limit);
}

/// The complement of the usual CRC-32, since the register is stored as it stands.
inline std::uint32_t RegisterOver(const std::string& records) {
    const uLong crc =
        crc32(0, reinterpret_cast<const Bytef*>(records.data()), static_cast<uInt>(records.size()));
    return ~static_cast<std::uint32_t>(crc);
}

/// For tests of a scan file writer in a directory of its own.
class WritingTest : public testing::Test {
  protected:
    std::unique_ptr<ZSBFile> Make(const WriterSettings& settings = {}) {
        return MakeWriter(directory_.Path(), settings);
    }

    /// Appends a record and remembers it.
    int Append(ZSBFile& file, std::uint64_t number, const std::string& block) {
        const std::string bytes = MakeRecord(number, block);
        records_ += bytes;
        std::memcpy(&record_, bytes.data(), bytes.size());
        return file.QuadAndBlockWrite(&record_);
    }

    int Close(ZSBFile& file, unsigned long* crc = nullptr) {
        return file.CreateClose(false, false, false, false, crc);
    }

    ScanFileParts Parts(const std::string& name) const { return ScanFileParts(Path(name)); }
    std::string Path(const std::string& name) const { return directory_.File(name); }

    TemporaryDirectory directory_;
    CapturedLog log_;
    std::string records_;
    QuadAndBlock_s record_{};
};

}  // namespace support
