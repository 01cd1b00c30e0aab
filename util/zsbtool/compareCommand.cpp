#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>

#include "util/common/blockTypes.h"
#include "util/common/orderedWork.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/comparison.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/poolImage.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/setWalk.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// Whether a path names a set: a folder, or a file that is named as a scan file.
bool NamesSet(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        throw Failure(Printable(path), errno);
    }
    return S_ISDIR(facts.st_mode) || ScanFileName::Parse(path.substr(path.rfind('/') + 1));
}

/// All that a comparison came to.
struct Result {
    std::uint64_t same = 0;
    DifferenceList differ;
    DifferenceList missing;

    void Add(const ComparedPiece& piece) {
        same += piece.same;
        for (const DifferentBlock& block : piece.differ) {
            differ.Add(block);
        }
        for (const DifferentBlock& block : piece.missing) {
            missing.Add(block);
        }
        for (const std::uint64_t block : piece.unreadable) {
            Complain("block " + std::to_string(block) + " of the device cannot be read");
        }
    }

    bool Same() const { return differ.Count() == 0 && missing.Count() == 0; }
};

void PutList(JsonDocument& json, const char* name, DifferenceList& list) {
    json.BeginList(name);
    list.Visit([&json](const DifferentBlock& block) {
        json.BeginEntry();
        json.Member("block", block.block);
        json.Member("type", kBlockTypes[block.type].name);
        json.EndObject();
    });
    json.EndList();
}

void PutRows(Output& out, const Painter& paint, const char* what, DifferenceList& list) {
    list.Visit([&](const DifferentBlock& block) {
        const std::string number = std::to_string(block.block);
        out << paint(Tone::kBad, what) << "  "
            << std::string(12 - std::min<std::size_t>(12, number.size()), ' ') << number << "  "
            << kBlockTypes[block.type].name << "\n";
    });
}

class CompareCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("--as-restored", asRestored_,
                       "Leave out what a restore does not write: MSAP and user blocks");
        arguments.Flag("-a", user_, "With --as-restored: user blocks were restored, too");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("DEVICE|IMAGE|SET", other_, "What to compare it with");
    }

    ExitStatus Run(Frame& frame) override {
        if (user_ && !asRestored_) {
            throw Failure("-a goes with --as-restored");
        }
        return NamesSet(other_) ? CompareSets(frame) : CompareImage(frame);
    }

  private:
    using ComparePiece = std::function<ComparedPiece(const PieceOfPool& piece)>;

    ComparedBlocks Wanted() const { return {.msap = !asRestored_, .user = !asRestored_ || user_}; }

    ExitStatus CompareImage(Frame& frame) {
        const ScanSet set = OpenSet(frame.settings, path_);
        const PoolImage image(other_);
        const IndexedSet indexed = IndexSet(frame.settings, set, "index");
        const auto compare = [&](const PieceOfPool& piece) {
            return Compare({set, indexed.index}, image, Wanted(), piece);
        };
        return Tell(frame, indexed.whole, indexed.index, compare);
    }

    ExitStatus CompareSets(Frame& frame) {
        const ScanSet set = OpenSet(frame.settings, path_);
        const ScanSet other = OpenSet(frame.settings, other_);
        const IndexedSet indexed = IndexSet(frame.settings, set, "index");
        const IndexedSet otherIndexed = IndexSet(frame.settings, other, "index");
        const auto compare = [&](const PieceOfPool& piece) {
            return Compare(ComparedSet{set, indexed.index}, ComparedSet{other, otherIndexed.index},
                           Wanted(), piece);
        };
        return Tell(frame, indexed.whole && otherIndexed.whole, indexed.index, compare);
    }

    static ExitStatus Tell(Frame& frame, bool whole, const ScanSetIndex& index,
                           const ComparePiece& compare) {
        const std::vector<PieceOfPool> pieces = PiecesOf(index);
        Result result;
        {
            Progress progress(frame.settings, "compare", index.Records() * kRecordSize);
            OrderedWork<ComparedPiece>::Run(
                pieces.size(), frame.settings.jobs,
                [&](std::size_t i) { return compare(pieces[i]); },
                [&](std::size_t, const ComparedPiece& piece) {
                    result.Add(piece);
                    progress.Add((piece.same + piece.differ.size()) * kRecordSize);
                });
        }
        if (frame.settings.json) {
            PutDocument(frame.out, result);
        } else {
            PutText(frame.out, result);
        }
        return whole && result.Same() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    static void PutDocument(Output& out, Result& result) {
        out.Stream();
        JsonDocument json(out, "compare");
        PutList(json, "differ", result.differ);
        PutList(json, "missing", result.missing);
        json.Close();
    }

    static void PutText(Output& out, Result& result) {
        out.Stream();
        const Painter paint(out);
        PutRows(out, paint, "differs", result.differ);
        PutRows(out, paint, "missing", result.missing);
        const std::string sum = Counted(result.same, "block") + " the same, " +
                                std::to_string(result.differ.Count()) + " different, " +
                                std::to_string(result.missing.Count()) + " missing";
        out << paint(result.Same() ? Tone::kGood : Tone::kBad, sum) << "\n";
    }

    std::string path_;
    std::string other_;
    bool asRestored_ = false;
    bool user_ = false;
};

}  // namespace

extern const CommandRow kCompareCommand;
const CommandRow kCompareCommand{"compare", "Hold a set against a device, an image or another set",
                                 [] { return std::unique_ptr<Command>(new CompareCommand); }};

}  // namespace zsbtool
