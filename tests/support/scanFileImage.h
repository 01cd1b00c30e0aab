#pragma once

#include <zlib.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/fileBytes.h"

namespace support {

struct TestRecord {
    std::uint64_t number;
    std::string block;  ///< 4096 bytes
};

/// A record whose block begins with `magic`; the rest depends on `number`.
inline TestRecord MakeTestRecord(std::uint64_t number, std::string_view magic = "LEAF") {
    std::string block(4096, static_cast<char>('a' + number % 26));
    return {number, block.replace(0, magic.size(), magic)};
}

/// The bytes of a scan file, laid out at the format's offsets with zlib alone: nothing of the
/// tool's own reader or writer. What is changed afterwards makes it a damaged one.
class ScanFileImage {
  public:
    static constexpr std::size_t kVersionAt = 4;
    static constexpr std::size_t kFileEofAt = 40;
    static constexpr std::size_t kDataBytesAt = 48;
    static constexpr std::size_t kCrcAt = 56;
    static constexpr std::size_t kFlagsAt = 60;
    static constexpr std::size_t kPoolNameAt = 144;
    static constexpr std::size_t kTrailerAt = 656;
    static constexpr std::size_t kHeaderBytes = 660;

    static ScanFileImage Raw(const std::vector<TestRecord>& records, std::uint32_t flags = 0x002) {
        const std::string payload = Payload(records);
        return {payload, payload, flags};
    }
    static ScanFileImage Compressed(const std::vector<TestRecord>& records) {
        return CompressedBytes(Payload(records));
    }
    /// One zlib stream of these bytes, whole records or not.
    static ScanFileImage CompressedBytes(const std::string& payload) {
        return {payload, Deflated(payload), 0x043};
    }

    ScanFileImage& SetByte(std::size_t offset, unsigned value) {
        bytes_.at(offset) = static_cast<char>(value);
        return *this;
    }
    ScanFileImage& FlipByte(std::size_t offset, unsigned mask = 0xFF) {
        return SetByte(offset, static_cast<unsigned char>(bytes_.at(offset)) ^ mask);
    }
    ScanFileImage& SetNumber(std::size_t offset, std::size_t width, std::uint64_t value) {
        for (std::size_t i = 0; i < width; ++i) {
            SetByte(offset + i, static_cast<unsigned>(value >> (8 * i) & 0xFF));
        }
        return *this;
    }
    ScanFileImage& SetFileEof(std::uint64_t value) { return SetNumber(kFileEofAt, 8, value); }
    ScanFileImage& SetDataBytes(std::uint64_t value) { return SetNumber(kDataBytesAt, 8, value); }
    ScanFileImage& SetFlags(std::uint32_t value) { return SetNumber(kFlagsAt, 4, value); }
    ScanFileImage& SetPoolName(std::u16string_view units) {
        for (std::size_t i = 0; i < 256; ++i) {
            SetNumber(kPoolNameAt + 2 * i, 2, i < units.size() ? units[i] : u'\0');
        }
        return *this;
    }
    /// Cuts the file; what its header says stays.
    ScanFileImage& ShrinkSize(std::size_t size) {
        bytes_.resize(size);
        return *this;
    }
    ScanFileImage& Append(std::string_view tail) {
        bytes_ += tail;
        return *this;
    }
    /// Makes the header's checksum that of the raw records as they are now.
    ScanFileImage& FixChecksum() {
        return SetNumber(kCrcAt, 4, Register(std::string_view(bytes_).substr(kHeaderBytes)));
    }

    std::size_t Size() const { return bytes_.size(); }
    const std::string& Bytes() const { return bytes_; }
    void Write(const std::string& path) const { WriteFile(path, bytes_); }

  private:
    ScanFileImage(std::string_view payload, std::string_view data, std::uint32_t flags)
        : bytes_(kHeaderBytes, '\0') {
        bytes_.replace(0, 8, std::string_view("SCAN\2\0\1\0", 8));
        bytes_.replace(kTrailerAt, 4, "SCAN");
        bytes_ += data;
        SetFileEof(bytes_.size());
        SetDataBytes(kHeaderBytes + payload.size());
        SetNumber(kCrcAt, 4, Register(payload));
        SetFlags(flags);
        SetPoolName(u"POOL");
    }

    static std::string Payload(const std::vector<TestRecord>& records) {
        std::string payload;
        for (const TestRecord& record : records) {
            for (unsigned i = 0; i < 8; ++i) {
                payload.push_back(static_cast<char>(record.number >> (8 * i) & 0xFF));
            }
            payload += record.block;
        }
        return payload;
    }
    static std::uint64_t Register(std::string_view payload) {
        return crc32_z(0, reinterpret_cast<const Bytef*>(payload.data()), payload.size()) ^
               0xFFFFFFFF;
    }
    static std::string Deflated(const std::string& payload) {
        uLongf size = compressBound(static_cast<uLong>(payload.size()));
        std::string data(size, '\0');
        if (compress(reinterpret_cast<Bytef*>(data.data()), &size,
                     reinterpret_cast<const Bytef*>(payload.data()),
                     static_cast<uLong>(payload.size())) != Z_OK) {
            throw std::runtime_error("zlib does not compress");
        }
        data.resize(size);
        return data;
    }

    std::string bytes_;
};

}  // namespace support
