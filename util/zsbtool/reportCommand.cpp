#include "util/common/scanSetMap.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/mapPicture.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/reportPage.h"
#include "util/zsbtool/table.h"

namespace zsbtool {

namespace {

class ReportCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.RequiredText("-o,--output", output_, "The page to make");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Optional("LOG", log_, "The log of the save, or its folder");
    }

    ExitStatus Run(Frame& frame) override {
        ScanSet set = OpenSet(frame.settings, path_);
        std::vector<LoggedRun> runs = log_.empty() ? std::vector<LoggedRun>() : ReadRunLog(log_);
        OutputFile file(frame.outputs, output_);
        ScanSetMap map(set.Model() == nullptr ? 0 : set.Model()->poolBlocks, kSvgMapCells);
        ScanSetReport report = Study(frame.settings, set, map);
        const CheckedSet checked{std::move(set), std::move(report)};
        WriteReport(file, {checked, map, log_, std::move(runs)});
        file.Commit();
        frame.out << Painter(frame.out)(VerdictTone(checked.report), Verdict(checked.report))
                  << "\n";
        return checked.report.Restorable() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    static ScanSetReport Study(const Settings& settings, const ScanSet& set, ScanSetMap& map) {
        Progress progress(settings, "report", set.Bytes());
        return CheckScanSet(
            set, settings.jobs, [&progress](std::uint64_t bytes) { progress.Add(bytes); },
            [&map](std::size_t, const QuadAndBlock_s& record) { map.Add(record); });
    }

    std::string path_;
    std::string log_;
    std::string output_;
};

}  // namespace

extern const CommandRow kReportCommand;
const CommandRow kReportCommand{"report", "Make a page of what a set is, holds and lacks",
                                [] { return std::unique_ptr<Command>(new ReportCommand); }};

}  // namespace zsbtool
