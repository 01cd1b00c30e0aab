#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/jobs.h"
#include "sim/manageFile.h"
#include "sim/service.h"

namespace sim {

/// What stands at a path of the mounted tree.
struct Node {
    enum class Kind { Missing, Directory, Manage, Result, Device };
    Kind kind = Kind::Missing;
    std::vector<std::string> entries{};   // of a directory
    std::string text{};                   // of a result file
    std::shared_ptr<DeviceFile> image{};  // of a device
};

/// The mounted tree: the management file, the result files of the jobs, the pool devices; and the
/// files that are open in it. Any thread may call it.
class FileTree {
  public:
    FileTree(const Service& service, const Jobs& jobs, Conversations& conversations)
        : service_(service), jobs_(jobs), conversations_(conversations) {}

    /// What stands at `path` now, which starts with "/" at the mount point.
    Node Find(std::string_view path) const;

    /// Opens a file for `process` and gives its handle, or a negative errno.
    std::int64_t Open(const Node& node, int process);

    /// The open file behind a handle of `Open`.
    std::shared_ptr<OpenFile> At(std::uint64_t handle) const;
    /// Ends the handle; the file stays for a call that is still in it.
    void Close(std::uint64_t handle);

  private:
    Node FindManaged(const std::vector<std::string>& parts) const;
    Node FindResult(const std::string& pool, const std::string& folder,
                    const std::string& name) const;
    Node FindDevice(const std::string& pool) const;
    std::vector<std::string> PoolNames(bool served) const;

    const Service& service_;
    const Jobs& jobs_;
    Conversations& conversations_;
    mutable std::mutex mutex_;
    std::map<std::uint64_t, std::shared_ptr<OpenFile>> open_;
    std::uint64_t nextHandle_ = 1;
};

}  // namespace sim
