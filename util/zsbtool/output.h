#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace zsbtool {

/// Standard output cannot be written; `errorNumber` tells why.
class OutputFailure : public std::runtime_error {
  public:
    explicit OutputFailure(int error);

    int errorNumber;
};

/// Standard output. What is written is kept back until the command has ended, so that one that
/// could not run leaves nothing there; a command whose result can be large calls `Stream` as soon
/// as it is sure to run. Used by one thread.
class Output {
  public:
    explicit Output(int descriptor) : descriptor_(descriptor) {}

    void Write(std::string_view text);
    /// From now on the text goes out as it grows, a large piece at a time.
    void Stream();
    /// Writes what is still kept back. Throws `OutputFailure`.
    void Finish();
    /// What has not gone out yet.
    std::string_view Kept() const { return kept_; }

    /// Whether what is written reaches a terminal.
    bool IsTerminal() const;

  private:
    void Flush();

    int descriptor_;
    bool streaming_ = false;
    std::string kept_;
};

inline Output& operator<<(Output& out, std::string_view text) {
    out.Write(text);
    return out;
}

}  // namespace zsbtool
