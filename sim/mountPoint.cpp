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

// One attempt at a shared lock on the record; false when the last user before has removed it in
// between. Whether the directory is there is asked under the lock alone: one that is there without
// it may be about to go.
bool MountPoint::TakeRecord() {
    record_ = open(recordPath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (record_ < 0) {
        throw std::runtime_error("could not make " + path_ + ": " + recordPath_ + ": " +
                                 std::strerror(errno));
    }
    flock(record_, LOCK_SH);
    if (IsSameFile(record_, recordPath_)) {
        return true;
    }
    close(record_);
    return false;
}

// The last user removes the record, and the directory unless it is the user's own.
void MountPoint::LeaveRecord() {
    if (flock(record_, LOCK_EX | LOCK_NB) == 0 && IsSameFile(record_, recordPath_)) {
        struct stat facts {};
        if (fstat(record_, &facts) == 0 && facts.st_size > 0) {
            rmdir(path_.c_str());
        }
        unlink(recordPath_.c_str());
    }
    close(record_);
}

MountPoint::MountPoint(const std::string& path) : path_(path), recordPath_(RecordPathOf(path)) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0 && errno == ENOTCONN) {
        umount2(path.c_str(), MNT_DETACH);  // left by a service that was killed
    }
    while (!TakeRecord()) {
    }
    const bool made = mkdir(path.c_str(), 0755) == 0 && ftruncate(record_, 1) == 0;
    if (!made && stat(path.c_str(), &facts) != 0) {
        const std::string reason = std::strerror(errno);
        LeaveRecord();
        throw std::runtime_error("could not make " + path_ + ": " + reason);
    }
}

MountPoint::~MountPoint() {
    LeaveRecord();
}

}  // namespace sim
