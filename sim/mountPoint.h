#pragma once

#include <string>

namespace sim {

/// The directory that is mounted on. Makes it when it is missing and removes it again with the
/// last service that uses it: several may share it from mount namespaces of their own, and a
/// directory that is removed takes the mounts of all of them with it.
class MountPoint {
  public:
    /// Throws std::runtime_error when the directory cannot be had.
    explicit MountPoint(const std::string& path);
    MountPoint(const MountPoint&) = delete;
    MountPoint& operator=(const MountPoint&) = delete;
    ~MountPoint();

  private:
    bool Take();

    const std::string path_;
    const std::string recordPath_;  ///< there while a service has made the directory
    int record_ = -1;
};

}  // namespace sim
