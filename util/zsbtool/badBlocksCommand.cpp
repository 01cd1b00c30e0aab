#include <algorithm>
#include <array>
#include <cstdio>

#include "util/common/scanFileFormat.h"
#include "util/zsbtool/badBlocks.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/runLog.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// The sizes of a mapfile are signed numbers of 64 bits.
constexpr std::uint64_t kMostBlocks = (std::uint64_t{1} << 63) / kPoolBlockSize - 1;

/// Blocks next to each other of one status of a mapfile.
struct Region {
    std::uint64_t begin;
    std::uint64_t end;
    char status;
};

/// Regions from block 0 on, without a gap; those of one status that meet are one.
class Regions {
  public:
    /// The blocks up to `end` have this status.
    void ReachTo(std::uint64_t end, char status) {
        const std::uint64_t begin = list_.empty() ? 0 : list_.back().end;
        if (end <= begin) {
            return;
        }
        if (!list_.empty() && list_.back().status == status) {
            list_.back().end = end;
        } else {
            list_.push_back({begin, end, status});
        }
    }

    const std::vector<Region>& List() const { return list_; }

  private:
    std::vector<Region> list_;
};

std::vector<Region> RegionsOf(const BadBlocks& bad, std::uint64_t poolBlocks) {
    const std::uint64_t known = std::min(bad.known, poolBlocks);
    Regions regions;
    for (const std::uint64_t block : bad.blocks) {
        if (block < known) {
            regions.ReachTo(block, '+');
            regions.ReachTo(block + 1, '-');
        }
    }
    regions.ReachTo(known, '+');
    regions.ReachTo(poolBlocks, '?');
    return regions.List();
}

/// The regions as ddrescue's mapfile has them, in bytes.
void PutMapfile(Output& out, const std::vector<Region>& regions) {
    const bool open = !regions.empty() && regions.back().status == '?';
    out << "# Mapfile. Created by zsbtool from the log of a save\n"
           "# current_pos  current_status  current_pass\n"
           "0x00000000     "
        << (open ? "?" : "+")
        << "               1\n"
           "#      pos        size  status\n";
    for (const Region& region : regions) {
        const auto bytes = [](std::uint64_t blocks) -> unsigned long long {
            return blocks * kPoolBlockSize;
        };
        std::array<char, 80> line{};
        std::snprintf(line.data(), line.size(), "0x%08llX  0x%08llX  %c\n", bytes(region.begin),
                      bytes(region.end - region.begin), region.status);
        out << line.data();
    }
}

void PutForPeople(Frame& frame, const LoggedRun& run, const BadBlocks& bad) {
    for (const std::uint64_t block : bad.blocks) {
        frame.out << std::to_string(block) << "\n";
    }
    const Painter paint(frame.out);
    const std::string count = Counted(bad.blocks.size(), "unreadable block");
    frame.out << paint(bad.blocks.empty() ? Tone::kGood : Tone::kBad, count) << "\n";
    if (run.readErrors > run.unreadable.size()) {
        const std::string left = Counted(run.readErrors - run.unreadable.size(), "more read error");
        frame.out << paint(Tone::kBad,
                           "not complete: the log counts " + left + " without their blocks")
                  << "\n";
    }
    if (!run.closed) {
        frame.out << paint(Tone::kBad, "not complete: the run was not closed") << "\n";
    }
}

class BadBlocksCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Number("--run", number_, "The run of that number in the log (default: the last)");
        arguments.Flag("--mapfile", mapfile_, "Print a mapfile for ddrescue");
        arguments.Optional("LOG", log_, "The log, or its folder (default: ostrelscan.log)");
    }

    ExitStatus Run(Frame& frame) override {
        if (mapfile_ && frame.settings.json) {
            throw Failure("--mapfile and --json do not go together");
        }
        const std::vector<LoggedRun> runs = ReadRunLog(log_);
        const std::uint64_t number = number_.value_or(runs.size());
        if (number < 1 || number > runs.size()) {
            throw Failure(Printable(log_) + ": there is no run" +
                          (number_ ? ' ' + std::to_string(number) : std::string()));
        }
        const LoggedRun& run = runs[number - 1];
        const BadBlocks bad = StudyBadBlocks(run);
        if (mapfile_) {
            PutMapfile(frame.out, RegionsOf(bad, PoolBlocks(run)));
        } else if (frame.settings.json) {
            JsonDocument json(frame.out, "bad-blocks");
            json.Member("run", number);
            json.Member("blocks", bad.blocks);
            json.Member("errors", run.readErrors);
            json.Member("complete", bad.complete);
            json.Close();
        } else {
            PutForPeople(frame, run, bad);
        }
        return ExitStatus::kGood;
    }

  private:
    std::uint64_t PoolBlocks(const LoggedRun& run) const {
        if (!run.poolBlocks || *run.poolBlocks > kMostBlocks) {
            throw Failure(Printable(log_) +
                          ": the run tells no size of the pool, so there is no map");
        }
        return *run.poolBlocks;
    }

    std::string log_ = "ostrelscan.log";
    std::optional<std::uint64_t> number_;
    bool mapfile_ = false;
};

}  // namespace

extern const CommandRow kBadBlocksCommand;
const CommandRow kBadBlocksCommand{"bad-blocks", "List the blocks that a save could not read",
                                   [] { return std::unique_ptr<Command>(new BadBlocksCommand); }};

}  // namespace zsbtool
