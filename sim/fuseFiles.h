#pragma once

#include <memory>
#include <string>

#include "sim/fileTree.h"

namespace sim {

/// The tree, mounted and served by threads of its own while the object lives. Only one at a time
/// may take the calls of one mount point. Throws std::runtime_error when mounting fails.
class FuseMount {
  public:
    /// The tree must outlive the mount; `mountPoint` must be there.
    FuseMount(FileTree& tree, const std::string& mountPoint);
    FuseMount(const FuseMount&) = delete;
    FuseMount& operator=(const FuseMount&) = delete;
    /// Waits for the calls that are under way, and unmounts.
    ~FuseMount();

  private:
    class Session;
    std::unique_ptr<Session> session_;
};

/// True on a thread that serves a call which its caller has given up.
bool FuseCallInterrupted();

}  // namespace sim
