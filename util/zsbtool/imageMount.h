#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace zsbtool {

/// A file that is read by calling somebody, as the file system shows it.
struct MountedImage {
    std::uint64_t bytes = 0;
    std::uint64_t heldBytes = 0;  ///< what it takes on disk, so to speak
    std::uint32_t time = 0;       ///< of its last change, UTC seconds
    /// Reads bytes before its end; returns 0 or errno. Called by several threads at once.
    std::function<int(std::uint64_t offset, std::span<char> out)> read;
};

/// A read-only folder with the one file "pool.img", mounted while the object lives. From its making
/// on SIGINT, SIGTERM and SIGHUP are held until `Serve` takes them, so that none ends the program
/// without unmounting; those that were ignored stay so.
class ImageMount {
  public:
    /// Mounts it; reads wait until they are served. Throws `Failure`.
    ImageMount(MountedImage image, const std::string& folder);
    ~ImageMount();
    ImageMount(const ImageMount&) = delete;
    ImageMount& operator=(const ImageMount&) = delete;

    /// Serves until somebody unmounts it or one of the signals comes.
    void Serve();
    /// Leaves it to another process, which was forked off since.
    void Leave();

  private:
    class Session;
    std::unique_ptr<Session> session_;
};

}  // namespace zsbtool
