#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zsbtool {

/// What a run was asked to do, as far as its log tells.
struct RunOptions {
    std::optional<std::string> path;
    std::optional<std::string> deviceName;
    std::optional<std::string> poolName;
    std::optional<bool> compress;
    std::optional<bool> sectors;
    std::optional<std::uint64_t> start;  ///< first block
    std::optional<std::uint64_t> end;    ///< last block, 0 for the pool's
};

/// A scan file of a run's history.
struct RunFile {
    std::string name;
    std::int32_t status;
    std::optional<std::uint64_t> crc;  ///< none where the file has none
    std::uint64_t total;               ///< blocks expected
    std::uint64_t current;             ///< blocks written or read
};

/// One run of the tool, as its log tells it.
struct LoggedRun {
    std::vector<std::string> arguments;  ///< with the program's name
    std::optional<RunOptions> options;
    std::optional<std::uint64_t> startTime;  ///< UTC seconds
    std::optional<std::uint64_t> endTime;
    bool closed = false;  ///< it has its end; else the process died, or is still at it
    std::vector<RunFile> files;
    std::uint64_t readErrors = 0;
    std::uint64_t writeErrors = 0;
    std::vector<std::uint64_t> unreadable;    ///< the blocks that the log names, in its order
    std::vector<std::string> messages;        ///< every line that is none of the rest
    std::optional<std::uint64_t> poolBlocks;  ///< size of the pool, in a save
    std::optional<std::uint64_t> reached;     ///< the block at which a save ended
    std::optional<std::int32_t> status;       ///< none where the log does not tell
};

/// The runs of a log, oldest first. `path` is a log or the folder of one. Throws `Failure` when it
/// cannot be read. What stands outside of all runs is skipped; a run that begins before the last
/// one has ended ends that one.
std::vector<LoggedRun> ReadRunLog(const std::string& path);

}  // namespace zsbtool
