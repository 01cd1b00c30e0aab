#pragma once

#include <sys/resource.h>

#include <csignal>

namespace support {

/// While it lives, no file of this process grows beyond `bytes`: a write past it fails with EFBIG.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limited = old_;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit old_{};
    void (*oldHandler_)(int);
};

}  // namespace support
