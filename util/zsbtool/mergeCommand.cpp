#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "util/common/blockTypes.h"
#include "util/common/scanSetMerge.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/madeSet.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

using MergeFindings = std::vector<ScanSetMerge::Finding>;

/// Sets are numbered from 1 for people and programs.
std::string SetText(std::size_t set) {
    return std::to_string(set + 1);
}

/// Tells of a merge as it goes on: blocks that differ may be many.
class MergeReport {
  public:
    MergeReport(Frame& frame, const std::vector<ScanSet>& sets)
        : out_(frame.out), sets_(sets), paint_(frame.out) {
        if (frame.settings.json) {
            json_.emplace(out_, "merge");
            json_->BeginList("differ");
        }
    }

    void Differs(const ScanSetConflict& conflict) {
        if (!conflict.taken) {
            undecided_ += 1;
            out_.Stream();  // nothing is made any more, and what differs may be much
        }
        if (json_) {
            PutMembers(conflict);
        } else {
            PutLine(conflict);
        }
    }

    void Finish(const ScanSetMerge& merge, const MadeSet& made) {
        if (json_) {
            json_->EndList();
            PutMadeSet(*json_, made);
            PutSets(merge);
            PutFindings("problems", merge.Problems());
            PutFindings("warnings", merge.Warnings());
            json_->Close();
            return;
        }
        PutFindings(merge);
        const char* differ = undecided_ == 1 ? " differs" : " differ";
        PutMadeSet(out_, paint_, made,
                   merge.Problems().empty() ? Counted(undecided_, "block") + differ
                                            : Counted(merge.Problems().size(), "problem"));
    }

  private:
    void PutMembers(const ScanSetConflict& conflict) {
        std::vector<std::uint64_t> sets;
        std::ranges::transform(conflict.sets, std::back_inserter(sets),
                               [](std::size_t set) { return set + 1; });
        json_->BeginEntry();
        json_->Member("block", conflict.block);
        json_->Member("type", kBlockTypes[conflict.type].name);
        json_->Member("sets", sets);
        json_->Member("taken", conflict.taken ? std::optional(*conflict.taken + 1) : std::nullopt);
        json_->EndObject();
    }

    void PutLine(const ScanSetConflict& conflict) {
        std::string sets;
        for (const std::size_t set : conflict.sets) {
            sets += (sets.empty() ? "" : ", ") + SetText(set);
        }
        out_ << "block " << std::to_string(conflict.block) << " ("
             << kBlockTypes[conflict.type].name << ") differs in sets " << sets
             << (conflict.taken ? "; that of set " + SetText(*conflict.taken) + " is taken" : "")
             << "\n";
    }

    void PutSets(const ScanSetMerge& merge) {
        json_->BeginList("sets");
        for (std::size_t i = 0; i < sets_.size(); ++i) {
            json_->BeginEntry();
            json_->Member("number", i + 1);
            json_->Member("set", sets_[i].Listing().folder + sets_[i].Listing().first.Text());
            json_->Member("records", merge.Records()[i]);
            json_->Member("reachedEnd", bool{merge.ReachedEnd()[i]});
            json_->EndObject();
        }
        json_->EndList();
    }

    void PutFindings(const char* name, const MergeFindings& findings) {
        json_->BeginList(name);
        for (const ScanSetMerge::Finding& finding : findings) {
            const ScanProblem& problem = finding.problem;
            json_->BeginEntry();
            json_->Member("set", finding.set + 1);
            json_->Member("code", problem.code);
            json_->Member("file",
                          problem.file.empty() ? std::nullopt : std::optional(problem.file));
            json_->Member("text", problem.text);
            json_->EndObject();
        }
        json_->EndList();
    }

    void PutFindings(const ScanSetMerge& merge) {
        Table table({{""}, {"set", true}, {"code"}, {"file"}, {"what"}});
        const auto add = [&table](const MergeFindings& findings, const Cell& what) {
            for (const ScanSetMerge::Finding& finding : findings) {
                table.Row({what, SetText(finding.set), finding.problem.code, finding.problem.file,
                           finding.problem.text});
            }
        };
        add(merge.Problems(), {"problem", Tone::kBad});
        add(merge.Warnings(), {"warning", Tone::kWarning});
        if (!table.Empty()) {
            table.Write(out_, paint_);
        }
    }

    Output& out_;
    const std::vector<ScanSet>& sets_;
    const Painter paint_;
    std::optional<JsonDocument> json_;
    std::uint64_t undecided_ = 0;
};

class MergeCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("--compress", compress_, "Make compressed files");
        arguments.Number("--prefer", preferred_,
                         "Take blocks that differ from this set, the first being 1");
        arguments.RequiredText("-o,--output", out_, "A folder that is new or empty");
        arguments.Several("SET", paths_, "Two sets or more: folders, or a file of each");
    }

    ExitStatus Run(Frame& frame) override {
        CheckArguments();
        std::vector<ScanSet> sets;
        for (const std::string& path : paths_) {
            sets.push_back(OpenSet(frame.settings, path));
        }
        OutputFolder folder(frame.outputs, out_);
        ScanSetMerge merge(sets, {compress_, Preferred()});
        Check(frame.settings, sets, merge);
        MergeReport report(frame, sets);
        MadeSet made{out_, {}};
        if (merge.Problems().empty() && Write(frame.settings, merge, folder.Path(), report)) {
            made.set = SetInFolder(folder.Path(), {compress_ ? 'C' : 'T', false});
        }
        report.Finish(merge, made);
        if (made.set) {
            folder.Commit();
        }
        return made.set ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    void CheckArguments() const {
        if (paths_.size() < 2) {
            throw Failure("merge takes two sets or more");
        }
        if (preferred_ && (*preferred_ < 1 || *preferred_ > paths_.size())) {
            throw Failure("--prefer takes the number of a set, from 1 to " +
                          std::to_string(paths_.size()));
        }
    }

    std::optional<std::size_t> Preferred() const {
        return preferred_ ? std::optional<std::size_t>(*preferred_ - 1) : std::nullopt;
    }

    static void Check(const Settings& settings, const std::vector<ScanSet>& sets,
                      ScanSetMerge& merge) {
        std::uint64_t bytes = 0;
        for (const ScanSet& set : sets) {
            bytes += set.Bytes();
        }
        Progress progress(settings, "check", bytes);
        merge.Check(settings.jobs, [&progress](std::uint64_t more) { progress.Add(more); });
    }

    bool Write(const Settings& settings, const ScanSetMerge& merge, const std::string& folder,
               MergeReport& report) const {
        std::uint64_t records = 0;
        for (const std::uint64_t one : merge.Records()) {
            records += one;
        }
        Progress progress(settings, "merge", records * kRecordSize);
        try {
            return merge.Write(
                folder, settings.jobs, [&progress](std::uint64_t more) { progress.Add(more); },
                [&report](const ScanSetConflict& conflict) { report.Differs(conflict); });
        } catch (const std::system_error& error) {
            if (std::string_view(error.what()).starts_with(folder)) {
                throw Failure(Printable(out_), error.code().value());  // without a temporary name
            }
            throw;
        }
    }

    std::vector<std::string> paths_;
    std::string out_;
    bool compress_ = false;
    std::optional<std::uint64_t> preferred_;
};

}  // namespace

extern const CommandRow kMergeCommand;
const CommandRow kMergeCommand{"merge", "Make one set of several tries at saving a pool",
                               [] { return std::unique_ptr<Command>(new MergeCommand); }};

}  // namespace zsbtool
