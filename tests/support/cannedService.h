#pragma once

#include <string>
#include <vector>

#include "util/common/serviceFiles.h"

/// Serves the service's files from memory while it lives: every write at offset 0 is a request, the
/// reply to it is read from offset 0 on, and what was asked can be looked at.
class CannedService : public ServiceFiles {
  public:
    CannedService();
    ~CannedService() override;

    std::FILE* Open(const char* path, const char* mode) override;

    /// Replies one after the other, for the requests behind the mode switch; the last one serves
    /// all that follow.
    std::vector<std::string> replies;
    int openError = 0;
    int writeError = 0;  ///< errno of every write from now on; a mode switch that fails counts
    int readError = 0;   ///< errno of every read from now on
    int seekError = 0;   ///< errno of every seek from now on

    std::vector<std::string> opened;    ///< "path mode"
    std::vector<std::string> requests;  ///< with the mode switches
    int writes = 0;                     ///< how often something was written, in vain or not
    int openFiles = 0;

  private:
    struct Stream;

    ServiceFiles* previous_;
};

/// A service's reply around the inside of its operation's element.
std::string PoolInfoReply(const std::string& basicInfo, const std::string& result = "0");
std::string VolumeInfoReply(const std::string& basicInfo, const std::string& result = "0");

/// The reply of a service whose pool has that state word and GUID.
std::string PoolReply(const std::string& state, const std::string& guid);
