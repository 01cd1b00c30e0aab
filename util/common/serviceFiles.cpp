#include "util/common/serviceFiles.h"

#include <atomic>

namespace {

std::atomic<ServiceFiles*> currentFiles{nullptr};

}  // namespace

ServiceFile OpenServiceFile(const char* path, const char* mode, std::size_t bufferSize) {
    ServiceFiles* files = currentFiles.load();
    ServiceFile file(files != nullptr ? files->Open(path, mode) : std::fopen(path, mode));
    if (file != nullptr && bufferSize > 0) {
        // It must be the stream's before the first byte is read or written.
        std::vector<char>& buffer = file.get_deleter().buffer;
        buffer.resize(bufferSize);
        std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    }
    return file;
}

ServiceFiles* ReplaceServiceFiles(ServiceFiles* files) {
    return currentFiles.exchange(files);
}
