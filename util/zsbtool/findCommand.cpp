#include <algorithm>
#include <mutex>
#include <optional>
#include <tuple>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanFileWalk.h"
#include "util/zsbtool/blockNumbers.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/setWalk.h"
#include "util/zsbtool/table.h"

namespace zsbtool {

namespace {

/// Where a block lies.
struct Place {
    std::size_t file;
    std::uint64_t index;
    std::optional<std::uint64_t> offset;
    unsigned type;
};

class FindCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("BLOCK", typed_, "The number of the block");
    }

    ExitStatus Run(Frame& frame) override {
        const std::uint64_t block = ParseBlockNumber(typed_);
        const ScanSet set = OpenSet(frame.settings, path_);
        std::vector<Place> places;
        std::mutex mutex;
        const auto take = [&](const WalkedRecord& walked) {
            if (walked.record.blockNumber == block) {
                const std::lock_guard lock(mutex);
                places.push_back({walked.file, walked.walk.Count() - 1, walked.walk.Offset(),
                                  ClassifyBlock(ReadBlockWords(walked.record.block))});
            }
        };
        const bool whole = WalkSet(frame.settings, set, "find", take);
        std::ranges::sort(places, {},
                          [](const Place& place) { return std::tuple(place.file, place.index); });
        if (frame.settings.json) {
            PutDocument(frame.out, set, block, places);
        } else if (places.empty()) {
            frame.out << "block " << std::to_string(block) << " is not in the set\n";
        } else {
            PutTable(frame.out, set, places);
        }
        return whole && !places.empty() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    static void PutDocument(Output& out, const ScanSet& set, std::uint64_t block,
                            const std::vector<Place>& places) {
        JsonDocument json(out, "find");
        json.Member("block", block);
        json.BeginList("places");
        for (const Place& place : places) {
            json.BeginEntry();
            json.Member("file", set.Files()[place.file].name.Text());
            json.Member("index", place.index);
            json.Member("offset", place.offset);
            json.Member("type", kBlockTypes[place.type].name);
            json.EndObject();
        }
        json.EndList();
        json.Close();
    }

    static void PutTable(Output& out, const ScanSet& set, const std::vector<Place>& places) {
        Table table({{"file"}, {"index", true}, {"offset", true}, {"type"}});
        for (const Place& place : places) {
            table.Row({set.Files()[place.file].name.Text(), std::to_string(place.index),
                       place.offset ? std::to_string(*place.offset) : "-",
                       kBlockTypes[place.type].name});
        }
        table.Write(out, Painter(out));
    }

    std::string path_;
    std::string typed_;
};

}  // namespace

extern const CommandRow kFindCommand;
const CommandRow kFindCommand{"find", "Tell in which files of a set a block lies",
                              [] { return std::unique_ptr<Command>(new FindCommand); }};

}  // namespace zsbtool
