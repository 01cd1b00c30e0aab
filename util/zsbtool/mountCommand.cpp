#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

#include "util/common/fileDescriptor.h"
#include "util/common/scanSetPool.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/imageMount.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// What can be known of the folder before the set is read, which may take long.
void CheckFolder(const std::string& folder) {
    struct stat facts {};
    if (stat(folder.c_str(), &facts) != 0) {
        throw Failure(Printable(folder), errno);
    }
    if (!S_ISDIR(facts.st_mode)) {
        throw Failure(Printable(folder), ENOTDIR);
    }
}

std::unique_ptr<ScanSetPool> OpenPool(const Settings& settings, const std::string& path,
                                      bool strict) {
    ScanSet set = OpenSet(settings, path);
    Progress progress(settings, "check", set.Bytes());
    const auto tell = [&progress](std::uint64_t bytes) { progress.Add(bytes); };
    try {
        return std::make_unique<ScanSetPool>(std::move(set), settings.jobs, strict, tell);
    } catch (const std::system_error& error) {
        throw Failure(Printable(path), error.code().value());
    } catch (const std::runtime_error& error) {
        throw Failure(Printable(path) + ": " + error.what());
    }
}

/// Says what is wrong with the set, and which blocks cannot be read for it.
void TellFaults(const ScanSetPool& pool) {
    for (const ScanProblem& problem : pool.Report().problems) {
        Complain(Printable((problem.file.empty() ? "the set" : problem.file) + ": " + problem.code +
                           ": " + problem.text));
    }
    for (const BlockSpan& span : pool.Lost()) {
        Complain("blocks " + std::to_string(span.first) + " to " + std::to_string(span.end - 1) +
                 ": what the set does not hold of them cannot be read");
    }
}

MountedImage ImageOf(ScanSetPool& pool) {
    MountedImage image;
    image.bytes = pool.Bytes();
    image.heldBytes = std::min(pool.Report().records * kPoolBlockSize, pool.Bytes());
    const ScanSetFile* model = pool.Set().Model();
    image.time = model == nullptr ? 0 : model->createTime;
    image.read = [&pool](std::uint64_t offset, std::span<char> out) {
        return pool.Read(offset, out);
    };
    return image;
}

/// Lets go of the terminal and the current folder.
void Detach() {
    setsid();
    const FileDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(nowhere.Get(), standard);
    }
    if (chdir("/") != 0) {
        return;  // it stays where it is
    }
}

class MountCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("-f,--foreground", foreground_, "Stay, and end when it is unmounted");
        arguments.Flag("--strict", strict_, "Let no file be read whose CRC is wrong");
        arguments.Required("SET", set_, "A folder with a set, or a file of it");
        arguments.Required("DIR", folder_, "The folder to mount on");
    }

    ExitStatus Run(Frame& frame) override {
        CheckFolder(folder_);
        const std::unique_ptr<ScanSetPool> pool = OpenPool(frame.settings, set_, strict_);
        ImageMount mount(ImageOf(*pool), folder_);
        TellFaults(*pool);
        const ExitStatus status =
            pool->Report().Restorable() ? ExitStatus::kGood : ExitStatus::kFaults;
        if (foreground_) {
            mount.Serve();
        } else {
            ServeBehind(mount);
        }
        return status;
    }

  private:
    /// Returns at once, and in another process when it was unmounted.
    static void ServeBehind(ImageMount& mount) {
        const pid_t child = fork();
        if (child < 0) {
            throw Failure("it cannot go into the background", errno);
        }
        if (child != 0) {
            mount.Leave();
            return;
        }
        Detach();
        mount.Serve();
    }

    std::string set_;
    std::string folder_;
    bool foreground_ = false;
    bool strict_ = false;
};

}  // namespace

extern const CommandRow kMountCommand;
const CommandRow kMountCommand{"mount", "Show a set as an image of its pool",
                               [] { return std::unique_ptr<Command>(new MountCommand); }};

}  // namespace zsbtool
