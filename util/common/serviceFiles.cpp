#include "util/common/serviceFiles.h"

#include <atomic>

namespace {

std::atomic<ServiceFiles*> currentFiles{nullptr};

}  // namespace

ServiceFile OpenServiceFile(const char* path, const char* mode) {
    ServiceFiles* files = currentFiles.load();
    return ServiceFile(files != nullptr ? files->Open(path, mode) : std::fopen(path, mode));
}

ServiceFiles* ReplaceServiceFiles(ServiceFiles* files) {
    return currentFiles.exchange(files);
}
