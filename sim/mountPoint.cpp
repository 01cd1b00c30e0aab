#include "sim/mountPoint.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

std::string RecordPathOf(std::string path) {
    std::replace(path.begin(), path.end(), '/', '-');
    return "/run/ostrelsim" + path + ".made";
}

bool IsSameFile(int descriptor, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return fstat(descriptor, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino;
}

}  // namespace

// One attempt at a shared lock on the record. The lock is not changed from exclusive to shared in
// one step, so the last user may have removed everything in between.
bool MountPoint::Take() {
    record_ = open(recordPath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (record_ < 0) {
        throw std::runtime_error("could not make " + path_ + ": " + recordPath_ + ": " +
                                 std::strerror(errno));
    }
    flock(record_, LOCK_SH);
    struct stat facts {};
    if (IsSameFile(record_, recordPath_)) {
        mkdir(path_.c_str(), 0755);
        if (stat(path_.c_str(), &facts) == 0) {
            return true;
        }
        const std::string reason = std::strerror(errno);
        unlink(recordPath_.c_str());
        close(record_);
        throw std::runtime_error("could not make " + path_ + ": " + reason);
    }
    close(record_);
    return false;
}

MountPoint::MountPoint(const std::string& path) : path_(path), recordPath_(RecordPathOf(path)) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0 && errno == ENOTCONN) {
        umount2(path.c_str(), MNT_DETACH);  // left by a service that was killed
    }
    if (stat(path.c_str(), &facts) == 0 && access(recordPath_.c_str(), F_OK) != 0) {
        return;  // it is the user's own
    }
    while (!Take()) {
    }
}

MountPoint::~MountPoint() {
    if (record_ < 0) {
        return;
    }
    if (flock(record_, LOCK_EX | LOCK_NB) == 0 && IsSameFile(record_, recordPath_)) {
        rmdir(path_.c_str());
        unlink(recordPath_.c_str());
    }
    close(record_);
}

}  // namespace sim
