#pragma once

#include <zlib.h>

#include <string>
#include <string_view>

#include "tests/support/fileBytes.h"

namespace fuzz {

/// A scan file as its format says it, read with zlib alone: nothing of the product's own reader.
class Unpacked {
  public:
    static constexpr std::size_t kHeader = 660;
    static constexpr std::size_t kRecord = 4104;
    static constexpr std::size_t kMost = 64 * kRecord;  ///< of a compressed file's payload

    explicit Unpacked(std::string_view file) : hasHeader_(file.size() >= kHeader) {
        if (!hasHeader_) {
            return;
        }
        header_ = file.substr(0, kHeader);
        data_ = file.substr(kHeader);
        if (Compressed()) {
            Inflate();
        } else {
            payload_ = data_.substr(0, RawBytes());
            whole_ = data_.size() == RawBytes();
        }
    }

    bool HasHeader() const { return hasHeader_; }
    bool Signed() const {
        return hasHeader_ && header_.starts_with("SCAN") && header_.ends_with("SCAN") &&
               (Field(4, 2) == 1 || Field(4, 2) == 2);
    }
    std::uint64_t Field(std::size_t at, std::size_t width) const {
        return support::NumberAt(header_, at, width);
    }
    bool Compressed() const { return (Field(60, 4) & 5) == 1; }

    /// How many records the header speaks of.
    std::uint64_t Told() const {
        const std::uint64_t bytes = Field(48, 8);
        return bytes < kHeader ? 0 : (bytes - kHeader) / kRecord;
    }
    /// How many can be read.
    std::size_t Records() const { return payload_.size() / kRecord; }
    std::string_view Record(std::size_t index) const {
        return std::string_view(payload_).substr(index * kRecord, kRecord);
    }
    /// Whether the data ends with the file, and where it should.
    bool Whole() const { return whole_ && Field(40, 8) == kHeader + data_.size(); }
    /// The checksum over so many records.
    std::uint32_t Crc(std::size_t records) const {
        const auto* bytes = reinterpret_cast<const Bytef*>(payload_.data());
        return static_cast<std::uint32_t>(crc32_z(0, bytes, records * kRecord) ^ 0xFFFFFFFF);
    }

  private:
    /// The records that begin before the data's end and are there as a whole.
    std::size_t RawBytes() const {
        const std::uint64_t end = (Field(60, 4) & 5) == 5 ? Field(48, 8) : Field(40, 8);
        const std::size_t there = data_.size() / kRecord;
        const std::uint64_t begun = end <= kHeader ? 0 : (end - kHeader - 1) / kRecord + 1;
        return static_cast<std::size_t>(begun < there ? begun : there) * kRecord;
    }

    void Inflate() {
        z_stream stream{};
        inflateInit(&stream);
        payload_.resize(kMost);
        stream.next_in = reinterpret_cast<Bytef*>(data_.data());
        stream.avail_in = static_cast<uInt>(data_.size());
        stream.next_out = reinterpret_cast<Bytef*>(payload_.data());
        stream.avail_out = kMost;
        const int result = inflate(&stream, Z_SYNC_FLUSH);
        payload_.resize(kMost - stream.avail_out);
        whole_ = result == Z_STREAM_END && stream.avail_in == 0;
        inflateEnd(&stream);
    }

    bool hasHeader_;
    bool whole_ = false;
    std::string header_ = std::string(kHeader, '\0');
    std::string data_;
    std::string payload_;
};

}  // namespace fuzz
