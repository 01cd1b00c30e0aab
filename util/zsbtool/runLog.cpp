#include "util/zsbtool/runLog.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "util/common/errors.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/statusMeaning.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr const char* kLogName = "ostrelscan.log";

// The texts by which support staff and this program know what a line tells.
constexpr std::string_view kSaveStatus = "util/ostrelscan/scanUI[506]Status is ";
constexpr std::string_view kRestoreFailure = "util/ostrelscan/scanUI[727] ";
constexpr std::string_view kRefusal = "util/ostrelscan/scanUI[532] ";
constexpr std::string_view kRestoreIncomplete = "Could not restore complete pool - ";
constexpr std::string_view kHistory = "Current Scan File History:";
constexpr std::string_view kHistoryEnd = "DumpScanHistory Done ";
constexpr std::string_view kPoolBlocks = "Blocks in pool is ";
constexpr std::string_view kReadError = "  Read error recorded from ";
constexpr std::string_view kWriteError = "  Write error recorded from ";

template <class Number>
std::optional<Number> ParseWhole(std::string_view text, int base) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<std::uint64_t> Decimal(std::string_view text) {
    return ParseWhole<std::uint64_t>(text, 10);
}

std::optional<std::uint64_t> Hexadecimal(std::string_view text) {
    return ParseWhole<std::uint64_t>(text, 16);
}

/// What stands between two texts, of which the second ends the line.
std::optional<std::string_view> Between(std::string_view line, std::string_view before,
                                        std::string_view after) {
    if (line.size() < before.size() + after.size() || !line.starts_with(before) ||
        !line.ends_with(after)) {
        return {};
    }
    return line.substr(before.size(), line.size() - before.size() - after.size());
}

std::optional<std::string_view> Behind(std::string_view line, std::string_view before) {
    return Between(line, before, "");
}

/// Takes the last field of a line, which a tab character parts from the rest.
std::optional<std::string_view> TakeField(std::string_view& line) {
    const std::size_t tab = line.rfind('\t');
    if (tab == std::string_view::npos) {
        return {};
    }
    const std::string_view field = line.substr(tab + 1);
    line = line.substr(0, tab);
    return field;
}

/// A line of the history: name, status, CRC, total and current.
std::optional<RunFile> ParseFile(std::string_view line) {
    std::array<std::string_view, 4> fields;
    for (std::string_view& field : fields) {
        const std::optional<std::string_view> taken = TakeField(line);
        if (!taken) {
            return {};
        }
        field = *taken;
    }
    const auto current = Decimal(fields[0]);
    const auto total = Decimal(fields[1]);
    const auto crc = Decimal(fields[2]);
    const auto status = ParseWhole<std::int32_t>(fields[3], 10);
    if (!current || !total || !crc || !status) {
        return {};
    }
    const bool known = *crc <= 0xFFFFFFFF;
    return RunFile{std::string(line), *status, known ? crc : std::nullopt, *total, *current};
}

/// The block of "...[1366]  Block - 11 Status - 22ba5005".
std::optional<std::uint64_t> BlockOfDetail(std::string_view line) {
    constexpr std::string_view kBlock = "]  Block - ";
    constexpr std::string_view kStatus = " Status - ";
    const std::size_t block = line.rfind(kBlock);
    const std::size_t status = line.rfind(kStatus);
    if (block == std::string_view::npos || status == std::string_view::npos || status < block) {
        return {};
    }
    const std::size_t begin = block + kBlock.size();
    return status < begin ? std::nullopt : Hexadecimal(line.substr(begin, status - begin));
}

std::optional<bool> Truth(std::string_view text) {
    return text == "1" ? std::optional(true) : text == "0" ? std::optional(false) : std::nullopt;
}

struct OptionRow {
    const char* name;
    void (*store)(RunOptions& options, std::string_view text);
};

constexpr OptionRow kOptionRows[] = {
    {"Path", [](RunOptions& options, std::string_view text) { options.path = text; }},
    {"DO_DeviceName",
     [](RunOptions& options, std::string_view text) { options.deviceName = text; }},
    {"PoolName", [](RunOptions& options, std::string_view text) { options.poolName = text; }},
    {"Compress",
     [](RunOptions& options, std::string_view text) { options.compress = Truth(text); }},
    {"Sectors", [](RunOptions& options, std::string_view text) { options.sectors = Truth(text); }},
    {"Start",
     [](RunOptions& options, std::string_view text) { options.start = Hexadecimal(text); }},
    {"End", [](RunOptions& options, std::string_view text) { options.end = Hexadecimal(text); }},
};

/// Stores what a line says of an option; false when it says nothing.
bool StoreOption(RunOptions& options, std::string_view line) {
    for (const OptionRow& row : kOptionRows) {
        const std::string tag(row.name);
        if (const auto text = Between(line, "<" + tag + ">", "</" + tag + ">")) {
            row.store(options, *text);
            return true;
        }
    }
    return false;
}

/// Reads the lines of one run, in order.
class RunReader {
  public:
    LoggedRun run;

    void Take(std::string_view line) {
        if (!TakeHeader(line) && !TakeOption(line) && !TakeHistory(line) && !TakeError(line) &&
            !TakeOutcome(line) && !line.empty()) {
            run.messages.emplace_back(line);
        }
    }

  private:
    bool TakeHeader(std::string_view line) {
        if (inCommandLine_) {
            TakeArgument(line);
            return true;
        }
        if (line == "<CommandLine>") {
            inCommandLine_ = true;
            return true;
        }
        return TakeTime(line) || line == "ostrelscan - KUVO Pool Scanner" ||
               line.starts_with("  Version: ") || line.starts_with("  Build: ");
    }

    /// An argument stands there as it is, so it can go over several lines.
    void TakeArgument(std::string_view line) {
        if (line == "</CommandLine>") {
            inCommandLine_ = false;
            return;
        }
        pending_ += pending_.empty() ? std::string(line) : '\n' + std::string(line);
        constexpr std::string_view kValue = "\" argv=\"";
        const std::size_t value = pending_.find(kValue);
        if (pending_.starts_with(" <argv index=\"") && pending_.ends_with("\" />") &&
            value != std::string::npos) {
            const std::size_t begin = value + kValue.size();
            run.arguments.push_back(pending_.substr(begin, pending_.size() - begin - 4));
            pending_.clear();
        }
    }

    bool TakeTime(std::string_view line) {
        constexpr std::string_view kValue = "\" timeValue=\"";
        if (!line.starts_with("<CurrentTime time=") || !line.ends_with("\" />")) {
            return false;
        }
        const std::size_t value = line.rfind(kValue);
        if (value == std::string_view::npos) {
            return false;
        }
        line.remove_suffix(4);
        const auto time = Decimal(line.substr(std::min(value + kValue.size(), line.size())));
        // The first stamp ends the header; the last one stands before the run's end.
        (run.startTime ? run.endTime : run.startTime) = time;
        return time.has_value();
    }

    bool TakeOption(std::string_view line) {
        if (line == "<Options>") {
            run.options.emplace();
            inOptions_ = true;
            return true;
        }
        if (!inOptions_) {
            return false;
        }
        if (line == "</Options>") {
            inOptions_ = false;
            return true;
        }
        return StoreOption(*run.options, line);
    }

    bool TakeHistory(std::string_view line) {
        if (line == kHistory) {
            inHistory_ = true;
            run.files.clear();
            return true;
        }
        if (line == kHistoryEnd) {
            inHistory_ = false;
            // A restore, whose options name no device, says a status only when it fails.
            if (run.options && !run.options->deviceName && !run.status) {
                run.status = 0;
            }
            return true;
        }
        if (!inHistory_) {
            return false;
        }
        std::optional<RunFile> file = ParseFile(line);
        inHistory_ = file.has_value();
        if (file) {
            run.files.push_back(std::move(*file));
        }
        return file.has_value() || line.empty();
    }

    bool TakeError(std::string_view line) {
        if (line == "TrackReadErrorStats") {
            run.readErrors += 1;
        } else if (line == "TrackWriteErrorStats") {
            run.writeErrors += 1;
        } else if (line.starts_with(kReadError)) {
            if (const auto block = BlockOfDetail(line)) {
                run.unreadable.push_back(*block);
            }
        } else if (!line.starts_with(kWriteError)) {
            return false;
        }
        return true;
    }

    /// Where the run came to, and how it ended. A failure stays among the messages.
    bool TakeOutcome(std::string_view line) {
        if (const auto blocks = Behind(line, kPoolBlocks)) {
            run.poolBlocks = Decimal(*blocks);
            return true;
        }
        if (const auto status = Behind(line, kSaveStatus)) {
            run.status = ParseHexStatus(*status);
            return true;
        }
        if (const auto summary = Behind(line, "UI - ")) {
            run.reached = Hexadecimal(summary->substr(0, summary->find(' ')));
            return true;
        }
        if (const auto failure = Behind(line, kRestoreFailure)) {
            const auto told = Behind(*failure, kRestoreIncomplete);
            run.status = told ? ParseDecimalStatus(*told) : 1;
        } else if (line.starts_with(kRefusal)) {
            run.status = zERR_BAD_PARAMETER_VALUE;
        }
        return line == "Done ";
    }

    bool inCommandLine_ = false;
    bool inOptions_ = false;
    bool inHistory_ = false;
    std::string pending_;  // of an argument
};

/// Parts the log into its runs.
class LogReader {
  public:
    std::vector<LoggedRun> runs;

    void Take(std::string_view line) {
        if (line == "<ostrelscan>") {
            End(false);
            reader_.emplace();
        } else if (line == "</ostrelscan>") {
            End(true);
        } else if (reader_) {
            reader_->Take(line);
        }
    }

    /// Ends the run that is open, if there is one.
    void End(bool closed) {
        if (reader_) {
            runs.push_back(std::move(reader_->run));
            runs.back().closed = closed;
            reader_.reset();
        }
    }

  private:
    std::optional<RunReader> reader_;
};

}  // namespace

std::vector<LoggedRun> ReadRunLog(const std::string& path) {
    std::error_code ignored;
    const bool folder = std::filesystem::is_directory(path, ignored);
    const std::string log = folder ? (std::filesystem::path(path) / kLogName).string() : path;
    std::ifstream file(log, std::ios::binary);
    if (!file) {
        throw Failure(Printable(log), errno);
    }
    LogReader reader;
    for (std::string line; std::getline(file, line);) {
        reader.Take(line);
    }
    if (file.bad()) {
        throw Failure(Printable(log), errno);
    }
    reader.End(false);
    return std::move(reader.runs);
}

}  // namespace zsbtool
