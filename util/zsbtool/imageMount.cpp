#include "util/zsbtool/imageMount.h"

#define FUSE_USE_VERSION 312
#include <fcntl.h>
#include <fuse.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <thread>
#include <utility>

#include "util/common/fileDescriptor.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::string_view kName = "/pool.img";
constexpr int kWakeSignal = SIGUSR1;
/// What a reader waits for is the disk or the inflating, and each has a piece of a file in memory.
constexpr unsigned kMostThreads = 8;

const MountedImage& ImageOfMount() {
    return *static_cast<const MountedImage*>(fuse_get_context()->private_data);
}

int GetAttributes(const char* path, struct stat* attributes, fuse_file_info* /*info*/) {
    constexpr unsigned kSector = 512;
    const bool file = path == kName;
    if (!file && std::string_view(path) != "/") {
        return -ENOENT;
    }
    attributes->st_mode = file ? S_IFREG | 0444U : S_IFDIR | 0555U;
    attributes->st_nlink = file ? 1 : 2;
    attributes->st_uid = getuid();
    attributes->st_gid = getgid();
    attributes->st_mtime = attributes->st_ctime = attributes->st_atime = ImageOfMount().time;
    if (file) {
        attributes->st_size = static_cast<off_t>(ImageOfMount().bytes);
        attributes->st_blocks = static_cast<blkcnt_t>(ImageOfMount().heldBytes / kSector);
    }
    return 0;
}

int ReadDirectory(const char* /*path*/, void* buffer, fuse_fill_dir_t fill, off_t /*offset*/,
                  fuse_file_info* /*info*/, fuse_readdir_flags /*flags*/) {
    for (const char* name : {".", "..", kName.data() + 1}) {
        fill(buffer, name, nullptr, 0, {});
    }
    return 0;
}

int OpenImage(const char* /*path*/, fuse_file_info* info) {
    if ((info->flags & O_ACCMODE) != O_RDONLY) {
        return -EROFS;
    }
    info->keep_cache = 1;  // it never changes
    return 0;
}

int ReadImage(const char* /*path*/, char* buffer, std::size_t size, off_t offset,
              fuse_file_info* /*info*/) {
    const MountedImage& image = ImageOfMount();
    const auto from = static_cast<std::uint64_t>(offset);
    const std::size_t count = from < image.bytes ? std::min(size, image.bytes - from) : 0;
    try {
        const int error = image.read(from, {buffer, count});
        return error == 0 ? static_cast<int>(count) : -error;
    } catch (const std::exception&) {
        return -EIO;
    }
}

void* Initialise(fuse_conn_info* /*connection*/, fuse_config* config) {
    constexpr double kForGood = 86'400;
    config->entry_timeout = kForGood;
    config->attr_timeout = kForGood;
    config->negative_timeout = kForGood;
    return fuse_get_context()->private_data;
}

fuse_operations Operations() {
    fuse_operations operations{};
    operations.init = Initialise;
    operations.getattr = GetAttributes;
    operations.readdir = ReadDirectory;
    operations.open = OpenImage;
    operations.read = ReadImage;
    return operations;
}

/// What the library says when something fails.
void TellFuse(fuse_log_level /*level*/, const char* format, va_list values) {
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, values);
    std::string_view line = text.data();
    line.remove_suffix(line.ends_with('\n') ? 1 : 0);
    Complain(Printable(line));
}

sigset_t EndingSignals() {
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

/// The mount outlives the current folder.
std::string Absolute(const std::string& folder) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(folder.c_str(), nullptr),
                                                           std::free);
    if (real == nullptr) {
        throw Failure(Printable(folder), errno);
    }
    return real.get();
}

}  // namespace

class ImageMount::Session {
  public:
    Session(MountedImage image, const std::string& folder);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Serve();
    void Leave() { ours_ = false; }

  private:
    void Watch(pthread_t loop);

    const MountedImage image_;
    const sigset_t ending_ = EndingSignals();
    sigset_t before_{};
    fuse* fuse_ = nullptr;
    bool ours_ = false;  // to be unmounted
    FileDescriptor stop_;
    FileDescriptor signals_;
    std::atomic<bool> ended_{false};
};

ImageMount::Session::Session(MountedImage image, const std::string& folder)
    : image_(std::move(image)) {
    fuse_set_log_func(TellFuse);
    const std::string place = Absolute(folder);
    const fuse_operations operations = Operations();
    std::array<std::string, 3> words = {"zsbtool", "-o", "ro,fsname=zsbtool,subtype=zsbtool"};
    std::array<char*, 3> arguments = {words[0].data(), words[1].data(), words[2].data()};
    fuse_args args = FUSE_ARGS_INIT(static_cast<int>(arguments.size()), arguments.data());
    fuse_ = fuse_new(&args, &operations, sizeof operations,
                     const_cast<MountedImage*>(&image_));  // handed back as it is
    fuse_opt_free_args(&args);
    if (fuse_ == nullptr) {
        throw Failure("FUSE cannot be set up");
    }
    pthread_sigmask(SIG_BLOCK, &ending_, &before_);
    if (fuse_mount(fuse_, place.c_str()) != 0) {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        fuse_destroy(fuse_);
        throw Failure(Printable(folder) + ": it cannot be mounted on");
    }
    ours_ = true;
}

ImageMount::Session::~Session() {
    if (ours_) {
        fuse_unmount(fuse_);
    }
    fuse_destroy(fuse_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void ImageMount::Session::Serve() {
    signals_ = FileDescriptor(signalfd(-1, &ending_, SFD_CLOEXEC));
    stop_ = FileDescriptor(eventfd(0, EFD_CLOEXEC));
    if (!signals_.IsOpen() || !stop_.IsOpen()) {
        throw Failure("signals cannot be watched", errno);
    }
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    sigaction(kWakeSignal, &wake, nullptr);
    std::thread watcher([this, loop = pthread_self()] { Watch(loop); });
    fuse_loop_config* config = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(config, kMostThreads);
    fuse_loop_mt(fuse_, config);
    fuse_loop_cfg_destroy(config);
    ended_ = true;
    const std::uint64_t one = 1;
    while (write(stop_.Get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    watcher.join();
}

/// The loop looks for its end only when a signal wakes its thread; one that comes just before it
/// falls asleep is lost, hence the repetition.
void ImageMount::Session::Watch(pthread_t loop) {
    pollfd sources[] = {{signals_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}};
    while (poll(sources, std::size(sources), -1) < 0 && errno == EINTR) {
    }
    if (sources[0].revents == 0) {
        return;
    }
    signalfd_siginfo taken{};  // no longer pending, so that the run ends in order
    if (read(signals_.Get(), &taken, sizeof taken) < 0) {
        return;
    }
    while (!ended_) {
        fuse_exit(fuse_);
        pthread_kill(loop, kWakeSignal);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

ImageMount::ImageMount(MountedImage image, const std::string& folder)
    : session_(std::make_unique<Session>(std::move(image), folder)) {}

ImageMount::~ImageMount() = default;

void ImageMount::Serve() {
    session_->Serve();
}

void ImageMount::Leave() {
    session_->Leave();
}

}  // namespace zsbtool
