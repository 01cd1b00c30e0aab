#pragma once

#include <string>
#include <string_view>

#include "tests/support/fileBytes.h"
#include "tests/support/inflated.h"

namespace support {

/// A scan file's bytes, read at the offsets of the format and not through the writer's structure.
class ScanFileParts {
  public:
    explicit ScanFileParts(const std::string& path) : bytes_(ReadFile(path)) {}

    const std::string& Bytes() const { return bytes_; }
    std::string_view Signature() const { return Piece(0, 4); }
    std::uint64_t Version() const { return U16At(bytes_, 4); }
    std::uint64_t Revision() const { return U16At(bytes_, 6); }
    std::uint64_t CreateTime() const { return U32At(bytes_, 8); }
    std::uint64_t CloseTime() const { return U32At(bytes_, 12); }
    std::string_view ScanID() const { return Piece(16, 16); }
    std::uint64_t PoolBlocks() const { return U64At(bytes_, 32); }
    std::uint64_t FileEof() const { return U64At(bytes_, 40); }
    std::uint64_t DataBytes() const { return U64At(bytes_, 48); }
    std::uint64_t Crc() const { return U32At(bytes_, 56); }
    std::uint64_t Flags() const { return U32At(bytes_, 60); }
    std::uint64_t FileNumber() const { return U32At(bytes_, 64); }
    std::uint64_t CompressionLevel() const { return U32At(bytes_, 68); }
    std::uint64_t VersionMajor() const { return U16At(bytes_, 72); }
    std::uint64_t VersionMinor() const { return U16At(bytes_, 74); }
    std::string_view Reserved() const { return Piece(76, 68); }
    std::string_view PoolName() const { return Piece(144, 512); }
    std::string_view Trailer() const { return Piece(656, 4); }

    /// What stands behind the header.
    std::string_view Data() const { return std::string_view(bytes_).substr(660); }
    /// The same, inflated; a text that no record is when it is not one complete stream.
    std::string InflatedData() const { return Inflated(Data()).value_or("not one zlib stream"); }

  private:
    std::string_view Piece(std::size_t offset, std::size_t length) const {
        return std::string_view(bytes_).substr(offset, length);
    }

    std::string bytes_;
};

}  // namespace support
