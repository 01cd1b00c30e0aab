#include "sim/fuseFiles.h"

#define FUSE_USE_VERSION 312
#include <fuse.h>
#include <linux/fs.h>
#include <pthread.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace sim {
namespace {

FileTree& Tree() {
    return *static_cast<FileTree*>(fuse_get_context()->private_data);
}

std::uint64_t SizeOf(const Node& node) {
    return node.image ? node.image->DeviceSize().value_or(0) : node.text.size();
}

int GetAttributes(const char* path, struct stat* attributes, fuse_file_info* /*info*/) {
    const Node node = Tree().Find(path);
    if (node.kind == Node::Kind::Missing) {
        return -ENOENT;
    }
    const bool directory = node.kind == Node::Kind::Directory;
    const bool readOnly = node.kind == Node::Kind::Result;
    attributes->st_mode = directory ? S_IFDIR | 0755U : S_IFREG | (readOnly ? 0444U : 0644U);
    attributes->st_nlink = directory ? 2 : 1;
    attributes->st_size = static_cast<off_t>(SizeOf(node));
    attributes->st_blocks = attributes->st_size / 512;
    return 0;
}

int ReadDirectory(const char* path, void* buffer, fuse_fill_dir_t fill, off_t /*offset*/,
                  fuse_file_info* /*info*/, fuse_readdir_flags /*flags*/) {
    const Node node = Tree().Find(path);
    for (const char* name : {".", ".."}) {
        fill(buffer, name, nullptr, 0, {});
    }
    for (const std::string& name : node.entries) {
        fill(buffer, name.c_str(), nullptr, 0, {});
    }
    return 0;
}

int OpenPath(const char* path, fuse_file_info* info) {
    const Node node = Tree().Find(path);
    const std::int64_t handle = Tree().Open(node, fuse_get_context()->pid);
    if (handle < 0) {
        return static_cast<int>(handle);
    }
    info->fh = static_cast<std::uint64_t>(handle);
    // A reply has no size that could be known before, and a cached block could not turn bad.
    info->direct_io = 1;
    return 0;
}

int ReadFile(const char* /*path*/, char* buffer, std::size_t size, off_t offset,
             fuse_file_info* info) {
    return Tree().At(info->fh)->Read({buffer, size}, static_cast<std::uint64_t>(offset));
}

int WriteFile(const char* /*path*/, const char* bytes, std::size_t size, off_t offset,
              fuse_file_info* info) {
    return Tree().At(info->fh)->Write({bytes, size}, static_cast<std::uint64_t>(offset));
}

int SyncFile(const char* /*path*/, int /*dataOnly*/, fuse_file_info* info) {
    return Tree().At(info->fh)->Sync();
}

// The kernel tells of a close twice: at once, while the process waits, and some time later.
int FlushFile(const char* /*path*/, fuse_file_info* info) {
    Tree().At(info->fh)->Flush();
    return 0;
}

int CloseFile(const char* /*path*/, fuse_file_info* info) {
    Tree().Close(info->fh);
    return 0;
}

// A shell that writes with ">" shortens the file first, which means nothing to the management
// file; a pool's device never changes its size.
int Truncate(const char* path, off_t /*size*/, fuse_file_info* /*info*/) {
    return Tree().Find(path).kind == Node::Kind::Manage ? 0 : -EPERM;
}

int Control(const char* /*path*/, unsigned int command, void* /*argument*/, fuse_file_info* info,
            unsigned int /*flags*/, void* data) {
    const auto size = Tree().At(info->fh)->DeviceSize();
    if (command != BLKGETSIZE64 || !size) {
        return -ENOTTY;
    }
    std::memcpy(data, &*size, sizeof *size);
    return 0;
}

void* Initialise(fuse_conn_info* /*connection*/, fuse_config* config) {
    // Pools and jobs come and go behind the kernel's back.
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    return fuse_get_context()->private_data;
}

fuse_operations Operations() {
    fuse_operations operations{};
    operations.init = Initialise;
    operations.getattr = GetAttributes;
    operations.readdir = ReadDirectory;
    operations.open = OpenPath;
    operations.read = ReadFile;
    operations.write = WriteFile;
    operations.fsync = SyncFile;
    operations.flush = FlushFile;
    operations.release = CloseFile;
    operations.truncate = Truncate;
    operations.ioctl = Control;
    return operations;
}

constexpr int kWakeSignal = SIGUSR1;

}  // namespace

bool FuseCallInterrupted() {
    return fuse_interrupted() != 0;
}

class FuseMount::Session {
  public:
    Session(FileTree& tree, const std::string& mountPoint);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

  private:
    void Serve();

    fuse* fuse_ = nullptr;
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

FuseMount::Session::Session(FileTree& tree, const std::string& mountPoint) {
    const fuse_operations operations = Operations();
    std::array<std::string, 3> words = {"ostrelsim", "-o", "fsname=ostrelsim,subtype=ostrelsim"};
    std::array<char*, 3> arguments = {words[0].data(), words[1].data(), words[2].data()};
    fuse_args args = FUSE_ARGS_INIT(static_cast<int>(arguments.size()), arguments.data());
    fuse_ = fuse_new(&args, &operations, sizeof operations, &tree);
    fuse_opt_free_args(&args);
    if (fuse_ == nullptr) {
        throw std::runtime_error("FUSE cannot be set up");
    }
    if (fuse_mount(fuse_, mountPoint.c_str()) != 0) {
        fuse_destroy(fuse_);
        throw std::runtime_error("could not mount at " + mountPoint);
    }
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    sigaction(kWakeSignal, &wake, nullptr);
    thread_ = std::thread([this] { Serve(); });
}

void FuseMount::Session::Serve() {
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, kWakeSignal);
    pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);
    fuse_loop_config* config = fuse_loop_cfg_create();
    constexpr unsigned kMostThreads = 64;  // each may stand in a slow reply or a waiting event
    fuse_loop_cfg_set_max_threads(config, kMostThreads);
    fuse_loop_mt(fuse_, config);
    fuse_loop_cfg_destroy(config);
    ended_ = true;
}

// The loop looks for its end only when a signal wakes its thread; one that comes just before it
// falls asleep is lost, hence the repetition.
FuseMount::Session::~Session() {
    fuse_exit(fuse_);
    while (!ended_) {
        pthread_kill(thread_.native_handle(), kWakeSignal);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    thread_.join();
    fuse_unmount(fuse_);
    fuse_destroy(fuse_);
}

FuseMount::FuseMount(FileTree& tree, const std::string& mountPoint)
    : session_(std::make_unique<Session>(tree, mountPoint)) {}

FuseMount::~FuseMount() = default;

}  // namespace sim
