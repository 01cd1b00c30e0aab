#pragma once

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include <string>

#include "util/common/fileDescriptor.h"

namespace support {

/// A read-only block device over a file, for as long as it lives.
class LoopDevice {
  public:
    explicit LoopDevice(const std::string& file) {
        const FileDescriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
        for (int tries = 0; tries < 10 && control.IsOpen() && !Works(); ++tries) {
            Attach(file, ioctl(control.Get(), LOOP_CTL_GET_FREE));
        }
    }
    ~LoopDevice() {
        if (Works()) {
            ioctl(device_.Get(), LOOP_CLR_FD);
        }
    }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    /// False where the machine has no loop devices to give.
    bool Works() const { return device_.IsOpen(); }
    const std::string& Path() const { return path_; }

  private:
    /// Another process may take the free device first.
    void Attach(const std::string& file, int number) {
        path_ = "/dev/loop" + std::to_string(number);
        const FileDescriptor backing(open(file.c_str(), O_RDONLY | O_CLOEXEC));
        FileDescriptor device(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        loop_config config{};
        config.fd = static_cast<unsigned>(backing.Get());
        config.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
        if (device.IsOpen() && ioctl(device.Get(), LOOP_CONFIGURE, &config) == 0) {
            device_ = std::move(device);
        }
    }

    FileDescriptor device_;
    std::string path_;
};

}  // namespace support
