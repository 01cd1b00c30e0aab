#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zsbtool {

/// By what people tell one device from another; empty where the system does not know.
struct DeviceIdentity {
    std::string model;
    std::string serial;
};

/// Where the system tells of a device.
struct DeviceRecords {
    std::string sysFolder;  ///< its folder in sysfs, or a link to that
    std::string udevFile;   ///< what the device manager found out, if it did
};

/// Reads a device's identity, for a partition that of its disk.
DeviceIdentity ReadIdentity(const DeviceRecords& records);

/// What is to be known of a device before it is overwritten. Nothing of it is changed.
struct TargetDevice {
    bool blockDevice = false;  ///< where it is none, nothing else is known
    std::uint64_t bytes = 0;
    bool readOnly = false;
    std::vector<std::string> mountPoints;  ///< of the device and of its partitions
    bool held = false;                     ///< somebody has it for himself alone
    std::vector<std::string> holders;      ///< devices made of it
    std::optional<std::uint32_t> magic;    ///< first word of block 1
    int readError = 0;                     ///< errno where that cannot be read
    DeviceIdentity identity;

    /// Throws `Failure` when there is no such device or it cannot be opened.
    static TargetDevice Examine(const std::string& path);
};

}  // namespace zsbtool
