#include "util/zsbtool/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zsbtool {

namespace {

constexpr std::size_t kSentAtOnce = 65'536;

}  // namespace

OutputFailure::OutputFailure(int error)
    : std::runtime_error(std::string("standard output: ") + std::strerror(error)),
      errorNumber(error) {}

void Output::Write(std::string_view text) {
    kept_ += text;
    if (streaming_ && kept_.size() >= kSentAtOnce) {
        Flush();
    }
}

void Output::Stream() {
    streaming_ = true;
}

void Output::Flush() {
    std::string_view left = kept_;
    while (!left.empty()) {
        const ssize_t count = write(descriptor_, left.data(), left.size());
        if (count < 0 && errno != EINTR) {
            throw OutputFailure(errno);
        }
        left.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    kept_.clear();
}

void Output::Finish() {
    Flush();
    // Some file systems tell of a failed write when a descriptor is closed, and not before.
    const int copy = dup(descriptor_);
    if (copy >= 0 && close(copy) != 0) {
        throw OutputFailure(errno);
    }
}

bool Output::IsTerminal() const {
    return isatty(descriptor_) != 0;
}

}  // namespace zsbtool
