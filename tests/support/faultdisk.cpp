// A disk with bad blocks: a folder whose one file `disk` is an image, but for the requests that
// the file `control` beside it tells to fail. A loop device over `disk` is a real block device with
// bad sectors.

#define FUSE_USE_VERSION 31

#include <fcntl.h>
#include <fuse3/fuse.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/diskPace.h"
#include "tests/support/faultState.h"
#include "tests/support/unsyncedWrites.h"

namespace {

constexpr std::string_view kDisk = "/disk";
constexpr std::string_view kControl = "/control";
constexpr std::string_view kCut = "cut ";
constexpr const char* kAtOnce = "atonce";
constexpr const char* kQueued = "queued";
/// More than a queue of the system sends.
constexpr unsigned kMostAtOnce = 64;

struct Disk {
    int image = -1;
    support::FaultState faults;
    support::UnsyncedWrites unsynced;
    support::DiskPace pace;
    bool atOnce = false;  // whether many requests are served at once
    bool queued = false;  // whether the next one begins before the last one's bytes are handed over
    std::mutex turn;      // of all this, but for what requests wait for
};

Disk& TheDisk() {
    return *static_cast<Disk*>(fuse_get_context()->private_data);
}

int Result(ssize_t done) {
    return done < 0 ? -errno : static_cast<int>(done);
}

void* Init(fuse_conn_info* connection, fuse_config* config) {
    connection->max_background = kMostAtOnce;
    connection->congestion_threshold = kMostAtOnce;
    // The control file's size is not known before it is read.
    config->attr_timeout = 0;
    return fuse_get_context()->private_data;
}

int GetAttributes(const char* path, struct stat* facts, fuse_file_info* /*file*/) {
    *facts = {};
    if (kDisk == path) {
        return Result(fstat(TheDisk().image, facts));
    }
    if (std::string_view("/") == path) {
        facts->st_mode = S_IFDIR | 0755;
        facts->st_nlink = 2;
        return 0;
    }
    if (kControl == path) {
        facts->st_mode = S_IFREG | 0644;
        facts->st_nlink = 1;
        return 0;
    }
    return -ENOENT;
}

int ListFolder(const char* /*path*/, void* buffer, fuse_fill_dir_t fill, off_t /*offset*/,
               fuse_file_info* /*file*/, fuse_readdir_flags /*flags*/) {
    for (const std::string_view name :
         {std::string_view("/."), std::string_view("/.."), kDisk, kControl}) {
        fill(buffer, name.data() + 1, nullptr, 0, fuse_fill_dir_flags{});
    }
    return 0;
}

int Open(const char* path, fuse_file_info* file) {
    if (kControl == path) {
        file->direct_io = 1;
        return 0;
    }
    const std::lock_guard turn(TheDisk().turn);
    return -TheDisk().faults.Other();
}

/// The control file shrinks on opening with ">"; the disk keeps its size.
int Truncate(const char* path, off_t /*size*/, fuse_file_info* /*file*/) {
    return kControl == path ? 0 : -EPERM;
}

/// Stops this process at a paused block, until somebody sends SIGCONT.
void StandStillAt(off_t offset, std::size_t bytes) {
    if (TheDisk().faults.TakePause(static_cast<std::uint64_t>(offset), bytes)) {
        std::raise(SIGSTOP);
    }
}

/// Answers a request that fails, or any of a disk that becomes slower, after a while.
void Dawdle(int error) {
    const unsigned wait = TheDisk().faults.TakeDelay(error != 0);
    if (wait > 0) {
        usleep(wait);
    }
}

/// Waits until the disk's pace has a request answered; others take their turns meanwhile.
void KeepPace(std::unique_lock<std::mutex>& turn, std::size_t bytes) {
    const auto answer = TheDisk().pace.Take(bytes, !TheDisk().atOnce);
    turn.unlock();
    std::this_thread::sleep_until(answer);
    turn.lock();
}

/// Cuts the power: what was not synced is lost in part, as the seed has it, and the disk is gone.
void CutPower(unsigned seed) {
    TheDisk().faults.Command("gone");
    TheDisk().unsynced.Cut(TheDisk().image, seed);
}

void CutPower(std::string_view seed) {
    unsigned number = 0;
    std::from_chars(seed.data(), seed.data() + seed.size(), number);
    CutPower(number);
}

int ReadControl(char* buffer, std::size_t bytes, off_t offset) {
    const std::string text = TheDisk().faults.Text();
    const std::size_t from = std::min(static_cast<std::size_t>(offset), text.size());
    return static_cast<int>(text.copy(buffer, bytes, from));
}

int Read(const char* path, char* buffer, std::size_t bytes, off_t offset,
         fuse_file_info* /*file*/) {
    std::unique_lock turn(TheDisk().turn);
    if (kControl == path) {
        return ReadControl(buffer, bytes, offset);
    }
    StandStillAt(offset, bytes);
    const int error = TheDisk().faults.Read(static_cast<std::uint64_t>(offset), bytes);
    Dawdle(error);
    if (error != 0) {
        return -error;
    }
    KeepPace(turn, bytes);
    turn.unlock();
    const int count = Result(pread(TheDisk().image, buffer, bytes, offset));
    turn.lock();
    if (count > 0) {
        TheDisk().unsynced.LayOver(static_cast<std::uint64_t>(offset),
                                   {buffer, static_cast<std::size_t>(count)});
    }
    return count;
}

/// Takes a line of control text.
bool Take(Disk& disk, std::string_view line) {
    return disk.faults.Command(line) || disk.pace.Command(line);
}

int WriteControl(std::string_view text) {
    const std::size_t whole = text.size();
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (line.starts_with(kCut)) {
            CutPower(line.substr(kCut.size()));
        } else if (end > 0 && !Take(TheDisk(), line)) {
            return -EINVAL;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return static_cast<int>(whole);
}

int Write(const char* path, const char* buffer, std::size_t bytes, off_t offset,
          fuse_file_info* /*file*/) {
    std::unique_lock turn(TheDisk().turn);
    if (kControl == path) {
        return WriteControl({buffer, bytes});
    }
    StandStillAt(offset, bytes);
    if (TheDisk().faults.TakeCut(static_cast<std::uint64_t>(offset), bytes)) {
        CutPower(static_cast<unsigned>(offset));
    }
    if (const int error = TheDisk().faults.Write(static_cast<std::uint64_t>(offset), bytes)) {
        return -error;
    }
    KeepPace(turn, bytes);
    if (TheDisk().faults.Volatile()) {
        TheDisk().unsynced.Add(static_cast<std::uint64_t>(offset), {buffer, bytes});
        return static_cast<int>(bytes);
    }
    return Result(pwrite(TheDisk().image, buffer, bytes, offset));
}

int Flush(const char* path, fuse_file_info* /*file*/) {
    const std::lock_guard turn(TheDisk().turn);
    return kControl == path ? 0 : -TheDisk().faults.Other();
}

int Sync(const char* path, int /*dataOnly*/, fuse_file_info* /*file*/) {
    if (kControl == path) {
        return 0;
    }
    const std::lock_guard turn(TheDisk().turn);
    const int error = TheDisk().faults.Other();
    return error != 0 ? -error : -TheDisk().unsynced.Store(TheDisk().image);
}

fuse_operations Operations() {
    fuse_operations operations{};
    operations.init = Init;
    operations.getattr = GetAttributes;
    operations.readdir = ListFolder;
    operations.open = Open;
    operations.truncate = Truncate;
    operations.read = Read;
    operations.write = Write;
    operations.flush = Flush;
    operations.fsync = Sync;
    return operations;
}

/// "badread=17,18" on the command line is "badread 17,18" in the control file.
bool TakeFault(Disk& disk, std::string fault) {
    if (fault == kAtOnce || fault == kQueued) {
        disk.atOnce = fault == kAtOnce;
        disk.queued = fault == kQueued;
        return true;
    }
    std::replace(fault.begin(), fault.end(), '=', ' ');
    return Take(disk, fault);
}

/// Serves in the foreground, one request at a time or many, until a signal ends it and unmounts.
int Serve(Disk& disk, char* program, char* mountPoint) {
    std::string foreground = "-f";
    const std::string most = std::to_string(kMostAtOnce);
    std::string threads =
        disk.atOnce || disk.queued ? "-omax_threads=" + most + ",max_idle_threads=" + most : "-s";
    std::array<char*, 4> arguments{program, foreground.data(), threads.data(), mountPoint};
    const fuse_operations operations = Operations();
    return fuse_main(static_cast<int>(arguments.size()), arguments.data(), &operations, &disk) == 0
               ? 0
               : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs(
            "Usage: faultdisk IMAGE MOUNTPOINT [badread=17,20-24] [badwrite=20] "
            "[enospc=30] [pause=3000] [flaky=1] [delay=50] [slowing=1] [readonly] [gone] "
            "[volatile] [cutat=300] [latency=1000] [bandwidth=100] [atonce] [queued]\n",
            stderr);
        return 1;
    }
    Disk disk;
    for (int i = 3; i < argc; ++i) {
        if (!TakeFault(disk, argv[i])) {
            std::fprintf(stderr, "faultdisk: unknown fault: %s\n", argv[i]);
            return 1;
        }
    }
    // Its threads take it over: a pace is kept to the microsecond.
    prctl(PR_SET_TIMERSLACK, 1UL);
    disk.image = open(argv[1], O_RDWR | O_CLOEXEC);
    if (disk.image < 0) {
        std::fprintf(stderr, "faultdisk: %s: %s\n", argv[1], std::strerror(errno));
        return 1;
    }
    const int status = Serve(disk, argv[0], argv[2]);
    return close(disk.image) == 0 ? status : 1;
}
