#include <optional>
#include <system_error>

#include "util/common/scanSetRepack.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/madeSet.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// `pack`, and with the other form `unpack`.
class RepackCommand final : public Command {
  public:
    explicit RepackCommand(bool compress) : compress_(compress) {}

    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("OUT", out_, "A folder that is new or empty");
    }

    ExitStatus Run(Frame& frame) override {
        const ScanSet set = OpenSet(frame.settings, path_);
        const ScanSetRepack repack(set, compress_);
        if (const auto obstacle = repack.Obstacle()) {
            throw Failure(Printable(set.Listing().folder + obstacle->file) + ": " + obstacle->text);
        }
        OutputFolder folder(frame.outputs, out_);
        const ScanSetReport report = Repack(frame.settings, set, repack, folder.Path());
        MadeSet made{out_, {}};
        if (report.Restorable()) {
            made.set =
                SetInFolder(folder.Path(), {compress_ ? 'C' : 'T', set.Listing().first.restorable});
        }
        ReportMadeSet(frame, Name(), report, made);
        if (made.set) {
            folder.Commit();
        }
        return made.set ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    const char* Name() const { return compress_ ? "pack" : "unpack"; }

    ScanSetReport Repack(const Settings& settings, const ScanSet& set, const ScanSetRepack& repack,
                         const std::string& folder) const {
        Progress progress(settings, Name(), set.Bytes());
        try {
            return repack.Run(folder, settings.jobs,
                              [&progress](std::uint64_t bytes) { progress.Add(bytes); });
        } catch (const std::system_error& error) {
            // Its path is that of a temporary name.
            throw Failure(Printable(out_), error.code().value());
        }
    }

    const bool compress_;
    std::string path_;
    std::string out_;
};

}  // namespace

extern const CommandRow kPackCommand;
const CommandRow kPackCommand{"pack", "Compress the files of a set",
                              [] { return std::unique_ptr<Command>(new RepackCommand(true)); }};

extern const CommandRow kUnpackCommand;
const CommandRow kUnpackCommand{"unpack", "Make a compressed set raw again",
                                [] { return std::unique_ptr<Command>(new RepackCommand(false)); }};

}  // namespace zsbtool
