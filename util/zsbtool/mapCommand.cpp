#include "util/common/scanSetMap.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/mapPicture.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/setWalk.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

class MapCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Text("-o,--output", output_, "Draw it as SVG into this file");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
    }

    ExitStatus Run(Frame& frame) override {
        const ScanSet set = OpenSet(frame.settings, path_);
        return output_.empty() ? PutPicture(frame, set) : DrawPicture(frame, set);
    }

  private:
    static ExitStatus PutPicture(Frame& frame, const ScanSet& set) {
        ScanSetMap map(PoolBlocks(set), kTextMapCells);
        const bool whole = Fill(frame.settings, set, map);
        PutMap(frame.out, Painter(frame.out), map);
        return whole ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    ExitStatus DrawPicture(Frame& frame, const ScanSet& set) const {
        OutputFile file(frame.outputs, output_);
        ScanSetMap map(PoolBlocks(set), kSvgMapCells);
        const bool whole = Fill(frame.settings, set, map);
        file.Write(MapSvg(map));
        file.Commit();
        return whole ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    /// Whether the set could be read whole; what could not is told.
    static bool Fill(const Settings& settings, const ScanSet& set, ScanSetMap& map) {
        if (set.Model() == nullptr) {
            Complain("no file tells the size of the pool");
        }
        return WalkSet(settings, set, "map",
                       [&map](const WalkedRecord& walked) { map.Add(walked.record); });
    }

    static std::uint64_t PoolBlocks(const ScanSet& set) {
        return set.Model() == nullptr ? 0 : set.Model()->poolBlocks;
    }

    std::string path_;
    std::string output_;
};

}  // namespace

extern const CommandRow kMapCommand;
const CommandRow kMapCommand{"map", "Draw where the block types of a set lie in the pool",
                             [] { return std::unique_ptr<Command>(new MapCommand); }};

}  // namespace zsbtool
