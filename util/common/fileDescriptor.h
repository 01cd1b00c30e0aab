#pragma once

#include <unistd.h>

#include <utility>

/// Owns an open file descriptor.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, kNone)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() {
        if (IsOpen()) {
            close(descriptor_);
        }
    }

    bool IsOpen() const { return descriptor_ != kNone; }
    int Get() const { return descriptor_; }
    /// Gives the descriptor away.
    int Release() { return std::exchange(descriptor_, kNone); }

  private:
    static constexpr int kNone = -1;

    int descriptor_ = kNone;
};
