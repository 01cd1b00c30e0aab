#pragma once

#include <sstream>
#include <string>

#include "util/common/log.h"

/// Takes the run log while it lives.
class CapturedLog {
  public:
    std::string Text() const { return text_.str(); }

  private:
    std::stringbuf text_;
    LogRedirection redirection_{text_};
};
