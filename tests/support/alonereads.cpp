// Loaded before a program: whoever reads a block of a device by itself is answered from the image
// ALONE_IMAGE, whatever is wrong with the device over it, but for the blocks that ALONE_LOST names,
// as in ",17,20,". So a device can fail where each of its blocks can be read.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr off64_t kBlockBytes = 4096;

bool IsLost(off64_t offset) {
    const char* lost = std::getenv("ALONE_LOST");
    const std::string block = ',' + std::to_string(offset / kBlockBytes) + ',';
    return lost != nullptr && std::strstr(lost, block.c_str()) != nullptr;
}

}  // namespace

extern "C" ssize_t pread64(int file, void* buffer, std::size_t bytes, off64_t offset) {
    using Read = ssize_t(int, void*, std::size_t, off64_t);
    auto* const next = reinterpret_cast<Read*>(dlsym(RTLD_NEXT, "pread64"));
    const char* image = std::getenv("ALONE_IMAGE");
    struct stat facts {};
    if (image == nullptr || bytes != kBlockBytes || fstat(file, &facts) != 0 ||
        !S_ISBLK(facts.st_mode)) {
        return next(file, buffer, bytes, offset);
    }
    if (IsLost(offset)) {
        errno = EIO;
        return -1;
    }
    const int behind = open(image, O_RDONLY | O_CLOEXEC);
    const ssize_t count = next(behind, buffer, bytes, offset);
    const int error = errno;
    close(behind);
    errno = error;
    return count;
}
