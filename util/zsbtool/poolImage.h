#pragma once

#include <cstdint>
#include <string>

#include "util/common/fileDescriptor.h"
#include "util/common/scanFileFormat.h"

namespace zsbtool {

/// A pool as a device or an image has it. Used by any number of threads at a time.
class PoolImage {
  public:
    /// What came of reading a block.
    enum class Outcome {
        kRead,
        kBehindEnd,  ///< the image has no such block, or a part of it alone
        kFailed,     ///< the device refused it
    };

    /// Throws `Failure` when it cannot be opened, or is neither a device nor a file.
    explicit PoolImage(const std::string& path);

    Outcome ReadBlock(std::uint64_t block, char (&bytes)[kPoolBlockSize]) const;

  private:
    FileDescriptor file_;
    std::uint64_t blocks_ = 0;  // whole ones
};

}  // namespace zsbtool
