#include "util/zsbtool/poolImage.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

PoolImage::PoolImage(const std::string& path)
    // A pipe that nobody writes must not be waited for.
    : file_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    struct stat facts {};
    if (!file_.IsOpen() || fstat(file_.Get(), &facts) != 0) {
        throw Failure(Printable(path), errno);
    }
    if (!S_ISREG(facts.st_mode) && !S_ISBLK(facts.st_mode)) {
        throw Failure(Printable(path) + ": is neither a device nor an image");
    }
    const off_t size = lseek(file_.Get(), 0, SEEK_END);
    if (size < 0) {
        throw Failure(Printable(path), errno);
    }
    blocks_ = static_cast<std::uint64_t>(size) / kPoolBlockSize;
}

PoolImage::Outcome PoolImage::ReadBlock(std::uint64_t block, char (&bytes)[kPoolBlockSize]) const {
    if (block >= blocks_) {
        return Outcome::kBehindEnd;
    }
    std::size_t done = 0;
    while (done < kPoolBlockSize) {
        const auto offset = static_cast<off_t>(block * kPoolBlockSize + done);
        const ssize_t count = pread(file_.Get(), bytes + done, kPoolBlockSize - done, offset);
        if (count == 0) {
            return Outcome::kBehindEnd;
        }
        if (count < 0 && errno != EINTR) {
            return Outcome::kFailed;
        }
        done += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
    return Outcome::kRead;
}

}  // namespace zsbtool
