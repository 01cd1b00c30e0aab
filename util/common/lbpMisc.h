#pragma once

#include <cstdio>
#include <memory>

/// A stdio stream that is closed with its scope.
class Handle_raii {
  public:
    /// Opens `path` as fopen does. A failure is logged and thrown as std::runtime_error.
    Handle_raii(const char* path, const char* mode);

    std::FILE* get() const { return stream_.get(); }

  private:
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    std::unique_ptr<std::FILE, Close> stream_;
};
