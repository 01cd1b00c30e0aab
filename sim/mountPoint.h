#pragma once

#include <string>

namespace sim {

/// The directory that is mounted on. Makes it when it is missing and removes it again with the
/// last service that uses it: several may share it from mount namespaces of their own, and a
/// directory that is removed takes the mounts of all of them with it. All its users hold a lock on
/// a record of it, that of a directory of the user's own too.
class MountPoint {
  public:
    /// Throws std::runtime_error when the directory cannot be had.
    explicit MountPoint(const std::string& path);
    MountPoint(const MountPoint&) = delete;
    MountPoint& operator=(const MountPoint&) = delete;
    ~MountPoint();

  private:
    bool TakeRecord();
    void LeaveRecord();

    const std::string path_;
    const std::string recordPath_;  ///< there while the directory is used
    int record_ = -1;               ///< not empty when a service made the directory
};

}  // namespace sim
