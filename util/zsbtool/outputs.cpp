#include "util/zsbtool/outputs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

namespace fs = std::filesystem;

constexpr const char* kTemporaryName = ".zsbtool-XXXXXX";

/// The signals that would end the program and are not ignored.
sigset_t SignalsToWatch() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, number);
        }
    }
    return signals;
}

[[noreturn]] void Fail(const std::string& path, int error) {
    throw Failure(Printable(path), error);
}

/// The folder in which a path stands, with its "/".
std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

/// Makes the system keep what a path names. A file system that cannot is as good as it gets.
void Sync(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen() || (fsync(file.Get()) != 0 && errno != EINVAL && errno != EROFS)) {
        Fail(path, errno);
    }
}

/// The rights that a file of ours has by the umask.
mode_t FileRights() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// The path behind links, which are kept. Throws for anything there that is no regular file.
std::string Replaceable(const std::string& path) {
    struct stat facts {};
    if (lstat(path.c_str(), &facts) != 0) {
        if (errno == ENOENT) {
            return path;
        }
        Fail(path, errno);
    }
    if (stat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
        throw Failure(Printable(path) + ": there is something that is no regular file");
    }
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           std::free);
    return real != nullptr ? real.get() : path;
}

/// A folder without its "/" at the end.
std::string WithoutSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

/// Whether a folder is there, which must be empty.
bool ExistsEmpty(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        if (errno == ENOENT) {
            return false;
        }
        Fail(path, errno);
    }
    if (!S_ISDIR(facts.st_mode)) {
        Fail(path, ENOTDIR);
    }
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename() != "lost+found") {
            throw Failure(Printable(path) + ": the folder is not empty");
        }
    }
    if (error) {
        Fail(path, error.value());
    }
    return true;
}

/// The files of a folder, the last names first.
std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.rbegin(), names.rend());
    return names;
}

}  // namespace

Outputs::~Outputs() {
    if (watcher_.joinable()) {
        const std::uint64_t one = 1;
        while (write(stop_.Get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
        watcher_.join();
        pthread_sigmask(SIG_UNBLOCK, &watched_, nullptr);
    }
}

std::unique_lock<std::mutex> Outputs::Hold() {
    if (!watcher_.joinable()) {
        watched_ = SignalsToWatch();
        signals_ = FileDescriptor(signalfd(-1, &watched_, SFD_CLOEXEC));
        stop_ = FileDescriptor(eventfd(0, EFD_CLOEXEC));
        if (!signals_.IsOpen() || !stop_.IsOpen()) {
            throw Failure("signals cannot be watched", errno);
        }
        // Every thread that is started from here on inherits this.
        pthread_sigmask(SIG_BLOCK, &watched_, nullptr);
        watcher_ = std::thread([this] { Watch(); });
    }
    return std::unique_lock(mutex_);
}

void Outputs::Discard(const std::string& path) noexcept {
    const std::lock_guard hold(mutex_);
    std::error_code ignored;
    fs::remove_all(path, ignored);
    halfMade_.erase(path);
}

void Outputs::Watch() {
    pollfd sources[] = {{signals_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}};
    while (poll(sources, std::size(sources), -1) < 0 && errno == EINTR) {
    }
    signalfd_siginfo signal{};
    if (sources[0].revents != 0 && read(signals_.Get(), &signal, sizeof signal) > 0) {
        EndBy(static_cast<int>(signal.ssi_signo));
    }
}

void Outputs::EndBy(int signal) {
    mutex_.lock();  // for good
    for (const std::string& path : halfMade_) {
        // Threads that work in a folder may still put a file there.
        std::error_code error;
        do {
            fs::remove_all(path, error);
        } while (error == std::errc::directory_not_empty);
    }
    std::signal(signal, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    raise(signal);
    _exit(128 + signal);
}

OutputFile::OutputFile(Outputs& outputs, const std::string& path)
    : outputs_(outputs), path_(Replaceable(path)) {
    std::string name = FolderOf(path_) + kTemporaryName;
    const auto hold = outputs_.Hold();
    file_ = FileDescriptor(mkostemp(name.data(), O_CLOEXEC));
    if (!file_.IsOpen()) {
        Fail(path_, errno);
    }
    temporary_ = name;
    outputs_.Add(temporary_);
    fchmod(file_.Get(), FileRights());
}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) {
        outputs_.Discard(temporary_);
    }
}

void OutputFile::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file_.Get(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            Fail(path_, errno);
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

void OutputFile::Commit() {
    if (fsync(file_.Get()) != 0) {
        Fail(path_, errno);
    }
    const auto hold = outputs_.Hold();
    if (rename(temporary_.c_str(), path_.c_str()) != 0) {
        Fail(path_, errno);
    }
    outputs_.Forget(temporary_);
    temporary_.clear();
    Sync(FolderOf(path_));
}

OutputFolder::OutputFolder(Outputs& outputs, const std::string& path)
    : outputs_(outputs), path_(WithoutSlash(path)), existed_(ExistsEmpty(path_)) {
    // An existing folder may be another file system's root, so its files are made inside of it.
    std::string name = (existed_ ? path_ + '/' : FolderOf(path_)) + kTemporaryName;
    const auto hold = outputs_.Hold();
    if (mkdtemp(name.data()) == nullptr) {
        Fail(path_, errno);
    }
    temporary_ = name;
    outputs_.Add(temporary_);
    chmod(name.c_str(), FileRights() | ((FileRights() & 0444) >> 2));
}

OutputFolder::~OutputFolder() {
    if (!committed_) {
        outputs_.Discard(temporary_);
    }
}

void OutputFolder::Commit() {
    for (const std::string& name : NamesIn(temporary_)) {
        Sync(Path() + name);
    }
    Sync(temporary_);
    const auto hold = outputs_.Hold();
    if (existed_) {
        MoveInto();
    } else if (rename(temporary_.c_str(), path_.c_str()) != 0) {
        Fail(path_, errno);
    }
    committed_ = true;
    outputs_.Forget(temporary_);
    Sync(existed_ ? path_ : FolderOf(path_));
}

void OutputFolder::MoveInto() {
    std::vector<std::string> moved;
    for (const std::string& name : NamesIn(temporary_)) {
        const std::string to = path_ + '/' + name;
        if (rename((Path() + name).c_str(), to.c_str()) != 0) {
            const int error = errno;
            for (const std::string& done : moved) {
                unlink(done.c_str());
            }
            Fail(to, error);
        }
        moved.push_back(to);
    }
    rmdir(temporary_.c_str());
}

}  // namespace zsbtool
