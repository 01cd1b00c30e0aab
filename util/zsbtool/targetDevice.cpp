#include "util/zsbtool/targetDevice.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "util/common/fileDescriptor.h"
#include "util/common/scanFileFormat.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

namespace fs = std::filesystem;

std::string Trimmed(const std::string& text) {
    const auto shown = [](char character) {
        return static_cast<unsigned char>(character) > ' ' && character != '\x7f';
    };
    const auto first = std::ranges::find_if(text, shown);
    const auto last = std::find_if(text.rbegin(), std::make_reverse_iterator(first), shown).base();
    return {first, last};
}

/// What a small file holds, without blanks around it; nothing where it cannot be read.
std::string ReadSmall(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return Trimmed({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
}

/// The serial number in a page of vital product data: it stands behind a header of four bytes.
std::string ReadVitalProductData(const fs::path& path) {
    constexpr std::size_t kHeader = 4;
    std::ifstream file(path, std::ios::binary);
    const std::string page{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return page.size() > kHeader ? Trimmed(page.substr(kHeader)) : "";
}

/// A property that the device manager has noted of a device.
std::string UdevProperty(const DeviceRecords& records, const char* name) {
    std::ifstream file(records.udevFile);
    const std::string wanted = std::string("E:") + name + "=";
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(wanted)) {
            return Trimmed(line.substr(wanted.size()));
        }
    }
    return "";
}

std::string DeviceNumber(dev_t device) {
    return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string SysFolder(dev_t device) {
    return "/sys/dev/block/" + DeviceNumber(device);
}

/// The numbers of a device and of its partitions.
std::set<std::string> NumbersOf(dev_t device) {
    std::set<std::string> numbers = {DeviceNumber(device)};
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(SysFolder(device), ignored)) {
        if (fs::exists(entry.path() / "partition", ignored)) {
            numbers.insert(ReadSmall(entry.path() / "dev"));
        }
    }
    return numbers;
}

/// A path in a table of mounts, where blanks and the like are octal.
std::string WithoutEscapes(const std::string& text) {
    constexpr std::size_t kDigits = 3;
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + kDigits < text.size()) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, kDigits), nullptr, 8));
            i += kDigits;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

bool IsDevice(const std::string& path, dev_t device) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISBLK(facts.st_mode) && facts.st_rdev == device;
}

std::vector<std::string> MountPointsOf(dev_t device) {
    const std::set<std::string> numbers = NumbersOf(device);
    std::vector<std::string> points;
    std::ifstream table("/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string ignored;
        std::string number;
        std::string point;
        fields >> ignored >> ignored >> number >> ignored >> point;
        std::string source;
        // Some file systems have numbers of their own, and name their device.
        if (const std::size_t end = line.find(" - "); end != std::string::npos) {
            std::istringstream rest(line.substr(end));
            rest >> ignored >> ignored >> source;
        }
        if (numbers.contains(number) || IsDevice(WithoutEscapes(source), device)) {
            points.push_back(WithoutEscapes(point));
        }
    }
    return points;
}

std::vector<std::string> HoldersOf(dev_t device) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(SysFolder(device) + "/holders", ignored)) {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
}

/// What the device itself tells.
void Ask(const FileDescriptor& file, TargetDevice& device) {
    int readOnly = 0;
    if (ioctl(file.Get(), BLKGETSIZE64, &device.bytes) != 0) {
        device.bytes = 0;
    }
    device.readOnly = ioctl(file.Get(), BLKROGET, &readOnly) == 0 && readOnly != 0;
    std::uint32_t magic = 0;
    const ssize_t count = pread(file.Get(), &magic, sizeof magic, kPoolBlockSize);
    if (count == static_cast<ssize_t>(sizeof magic)) {
        device.magic = magic;
    } else if (count < 0) {
        device.readError = errno;
    }
}

}  // namespace

DeviceIdentity ReadIdentity(const DeviceRecords& records) {
    std::error_code ignored;
    fs::path folder = fs::canonical(records.sysFolder, ignored);
    if (fs::exists(folder / "partition", ignored)) {
        folder = folder.parent_path();
    }
    const auto first = [](std::initializer_list<std::string> texts) {
        const auto known =
            std::ranges::find_if(texts, [](const std::string& text) { return !text.empty(); });
        return known == texts.end() ? std::string() : *known;
    };
    return {first({ReadSmall(folder / "device/model"), UdevProperty(records, "ID_MODEL")}),
            first({ReadSmall(folder / "device/serial"), ReadSmall(folder / "serial"),
                   ReadVitalProductData(folder / "device/vpd_pg80"),
                   UdevProperty(records, "ID_SERIAL_SHORT")})};
}

TargetDevice TargetDevice::Examine(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        throw Failure(Printable(path), errno);
    }
    TargetDevice device;
    device.blockDevice = S_ISBLK(facts.st_mode);
    if (!device.blockDevice) {
        return device;
    }
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        throw Failure(Printable(path), errno);
    }
    Ask(file, device);
    const FileDescriptor alone(open(path.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC));
    device.held = !alone.IsOpen() && errno == EBUSY;
    device.mountPoints = MountPointsOf(facts.st_rdev);
    device.holders = HoldersOf(facts.st_rdev);
    device.identity =
        ReadIdentity({SysFolder(facts.st_rdev), "/run/udev/data/b" + DeviceNumber(facts.st_rdev)});
    return device;
}

}  // namespace zsbtool
