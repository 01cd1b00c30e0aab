#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

/// The files that the storage service publishes in its own name space, as the channel opens them:
/// the seam at which a conversation can be served without the service.
class ServiceFiles {
  public:
    ServiceFiles() = default;
    virtual ~ServiceFiles() = default;
    ServiceFiles(const ServiceFiles&) = delete;
    ServiceFiles& operator=(const ServiceFiles&) = delete;

    /// As fopen does, errno included; the caller closes the stream.
    virtual std::FILE* Open(const char* path, const char* mode) = 0;
};

/// Closes a stream of the service's with its scope, and frees the buffer that it was given.
struct CloseServiceFile {
    void operator()(std::FILE* stream) const { std::fclose(stream); }

    std::vector<char> buffer;
};
using ServiceFile = std::unique_ptr<std::FILE, CloseServiceFile>;

/// Opens through the process's current `ServiceFiles`, which is fopen unless it was replaced. The
/// stream gets a buffer of `bufferSize` bytes, or with 0 keeps the C library's.
ServiceFile OpenServiceFile(const char* path, const char* mode, std::size_t bufferSize = 0);

/// Makes the process open the service's files through `files`, which the caller keeps alive; null
/// is fopen again. Any thread may call it; returns what was there before.
ServiceFiles* ReplaceServiceFiles(ServiceFiles* files);
