#pragma once

#include <stdexcept>
#include <string>

namespace zsbtool {

/// Ends a command with status 1; the text is shown behind the program's name. What the command has
/// written so far is dropped, so it is thrown before `Output::Stream`.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    /// "`what`: " and the system's text for the error number.
    Failure(const std::string& what, int errorNumber);
};

}  // namespace zsbtool
