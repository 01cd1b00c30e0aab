#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "util/common/log.h"

namespace support {

/// Keeps what is logged while it lives, in hexadecimal as a run's log is.
class CapturedLog {
  public:
    /// Only while nobody logs.
    std::string Text() const { return buffer_.str(); }

    std::vector<std::string> Lines() const {
        std::istringstream text(Text());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

  private:
    std::stringbuf buffer_;
    LogRedirection redirection_{buffer_};
};

}  // namespace support
