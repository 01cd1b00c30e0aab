#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "util/common/fileDescriptor.h"
#include "util/common/scanFileFormat.h"

class Deflater;

/// The form of a scan file's data.
struct ScanForm {
    bool compressed = false;
    int level = -1;  ///< zlib's, -1 its default; a raw file has no use for it

    /// Flags with those that tell of compression as they are in this form.
    std::uint32_t Flags(std::uint32_t flags) const;
};

/// The header of a file as it stands there; all zero where there is none.
ScanFileHeader_s ReadScanFileHeader(const std::string& path);

/// Writes one scan file from records and a header that are given: times, scan ID and CRC are those
/// of the files that it is made from. Calls throw std::system_error with the path where the file
/// cannot be written. Used by one thread.
class ScanFileMaker {
  public:
    /// Creates the file, which must be new. Throws std::invalid_argument when zlib refuses the
    /// level.
    ScanFileMaker(std::string path, const ScanForm& form);
    ~ScanFileMaker();
    ScanFileMaker(const ScanFileMaker&) = delete;
    ScanFileMaker& operator=(const ScanFileMaker&) = delete;

    void Append(const QuadAndBlock_s& record);
    /// Ends the data and writes the header, whose `fileEof` and flags of compression are made to
    /// fit.
    void Finish(ScanFileHeader_s header);

  private:
    void Keep(std::span<const unsigned char> bytes);
    void WriteKept();
    void WriteAt(std::uint64_t offset, std::span<const unsigned char> bytes) const;
    [[noreturn]] void Fail(int error) const;

    const std::string path_;
    const ScanForm form_;
    FileDescriptor file_;
    std::unique_ptr<Deflater> deflater_;  // only when compressing
    std::vector<unsigned char> kept_;     // what is to be written next
    std::uint64_t end_ = kScanFileHeaderSize;
};
