#include <algorithm>
#include <optional>
#include <utility>

#include "util/zsbtool/checkSet.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/setReport.h"
#include "util/zsbtool/setSearch.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// Several sets: a line for each, and a sum.
class Summary {
  public:
    explicit Summary(Frame& frame) : frame_(frame), paint_(frame.out) {
        if (frame_.settings.json) {
            json_.emplace(frame_.out, "check");
            json_->BeginList("sets");
        }
    }

    void Add(const CheckedSet& checked) {
        sets_ += 1;
        faulty_ += checked.report.Restorable() ? 0 : 1;
        if (json_) {
            json_->BeginEntry();
            PutCheckedSet(*json_, checked);
            json_->EndObject();
            return;
        }
        frame_.out << Printable(checked.set.Listing().folder + checked.set.Listing().first.Text())
                   << ": " << paint_(VerdictTone(checked.report), Verdict(checked.report)) << "\n";
    }

    /// `whole` tells whether every folder could be searched.
    ExitStatus Finish(bool whole) {
        if (json_) {
            json_->EndList();
            json_->Member("restorable", faulty_ == 0);
            json_->Close();
        } else {
            const std::string sum =
                Counted(sets_, "set") + ", " + std::to_string(faulty_) + " not restorable";
            frame_.out << paint_(faulty_ == 0 ? Tone::kGood : Tone::kBad, sum) << "\n";
        }
        return whole && faulty_ == 0 ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    Frame& frame_;
    Painter paint_;
    std::optional<JsonDocument> json_;
    std::size_t sets_ = 0;
    std::size_t faulty_ = 0;
};

class CheckCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("-r,--recursive", recursive_, "Check every set below a folder");
        arguments.Several("SET", sets_, "Folders of sets, or a file of each");
    }

    ExitStatus Run(Frame& frame) override {
        if (!recursive_ && sets_.size() == 1) {
            return CheckOne(frame);
        }
        Summary summary(frame);
        bool whole = true;
        for (const std::string& path : sets_) {
            if (recursive_) {
                whole = CheckBelow(frame, path, summary) && whole;
            } else {
                summary.Add(CheckSet(frame.settings, OpenSet(frame.settings, path)));
            }
        }
        return summary.Finish(whole);
    }

  private:
    ExitStatus CheckOne(Frame& frame) const {
        const CheckedSet checked = CheckSet(frame.settings, OpenSet(frame.settings, sets_.front()));
        if (frame.settings.json) {
            JsonDocument json(frame.out, "check");
            PutCheckedSet(json, checked);
            json.Close();
        } else {
            PutCheckedSet(frame.out, Painter(frame.out), checked);
        }
        return checked.report.Restorable() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    /// False when a folder could not be searched, which is told.
    static bool CheckBelow(const Frame& frame, const std::string& path, Summary& summary) {
        FoundSets found = FindSets(path, ChoiceOf(frame.settings));
        if (found.sets.empty()) {
            throw Failure(Printable(path) + ": there is no set below it");
        }
        for (ScanSetListing& listing : found.sets) {
            summary.Add(CheckSet(frame.settings, ScanSet(std::move(listing))));
        }
        std::ranges::for_each(found.unreadable, Complain);
        return found.unreadable.empty();
    }

    std::vector<std::string> sets_;
    bool recursive_ = false;
};

}  // namespace

extern const CommandRow kCheckCommand;
const CommandRow kCheckCommand{"check", "Read every record of a set and tell what is wrong",
                               [] { return std::unique_ptr<Command>(new CheckCommand); }};

}  // namespace zsbtool
