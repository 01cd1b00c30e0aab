#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "util/common/ascii.h"
#include "util/common/blockTypes.h"
#include "util/zsbtool/checkSet.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/shellQuoting.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/targetDevice.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

enum class Grade { kOk, kWarning, kStop };

/// One thing that was looked at.
struct Item {
    const char* check;
    Grade verdict;
    std::string text;
};

const char* Word(Grade verdict) {
    constexpr const char* kWords[] = {"ok", "warning", "stop"};
    return kWords[static_cast<std::size_t>(verdict)];
}

Tone ToneOf(Grade verdict) {
    constexpr Tone kTones[] = {Tone::kGood, Tone::kWarning, Tone::kBad};
    return kTones[static_cast<std::size_t>(verdict)];
}

/// What of a set's records matters to a device.
struct Extent {
    std::optional<std::uint64_t> highest;     ///< none in a set without records
    std::optional<std::uint32_t> superblock;  ///< the magic of the pool's format, where it shows

    void Take(const QuadAndBlock_s& record) {
        highest = std::max(highest.value_or(0), record.blockNumber);
        if (record.blockNumber == 1) {
            std::uint32_t magic = 0;
            std::memcpy(&magic, record.block, sizeof magic);
            superblock = magic;
        }
    }

    void Join(const Extent& other) {
        if (other.highest) {
            highest = std::max(highest.value_or(0), *other.highest);
        }
        superblock = other.superblock ? other.superblock : superblock;
    }
};

/// The set that is to be restored, read whole.
struct Source {
    CheckedSet checked;
    Extent extent;

    static Source Read(const Settings& settings, ScanSet set) {
        std::vector<Extent> extents(set.Files().size());
        CheckedSet checked = CheckSet(settings, std::move(set),
                                      [&extents](std::size_t file, const QuadAndBlock_s& record) {
                                          extents[file].Take(record);
                                      });
        Source source{std::move(checked), {}};
        for (const Extent& one : extents) {
            source.extent.Join(one);
        }
        return source;
    }

    bool HasUserBlocks() const { return checked.report.types[kUserType] != 0; }

    /// The superblock that the set's pool has; by its leaves where the set has no superblock.
    std::optional<std::uint32_t> Format() const {
        const auto is = [this](std::uint32_t magic) { return extent.superblock == magic; };
        const auto count = [this](std::uint32_t magic) {
            return checked.report.types[FindFirstWordType(magic)];
        };
        if (is(kMagicSuperblock32) || is(kMagicSuperblock64)) {
            return extent.superblock;
        }
        const bool leaves32 = count(kMagicLeaf32) != 0;
        const bool leaves64 = count(kMagicLeaf64) != 0;
        if (leaves32 == leaves64) {
            return {};
        }
        return leaves32 ? kMagicSuperblock32 : kMagicSuperblock64;
    }
};

/// Looks at a set, a pool's name and a device as one who is about to restore.
class Inspection {
  public:
    Inspection(const Source& source, const TargetDevice& device)
        : set_(source.checked.set), source_(source), device_(device) {}

    std::vector<Item> Inspect(const std::string& pool) {
        LookAtProblems();
        LookAtNames();
        LookAtPoolName(pool);
        if (!device_.blockDevice) {
            Add("block-device", Grade::kStop, "it is no block device");
            return std::move(items_);
        }
        Add("block-device", Grade::kOk, "it is a block device");
        LookAtSize();
        LookAtUse();
        LookAtSuperblock();
        LookAtIdentity();
        return std::move(items_);
    }

  private:
    void Add(const char* check, Grade verdict, std::string text) {
        items_.push_back({check, verdict, std::move(text)});
    }

    void LookAtProblems() {
        const ScanSetReport& report = source_.checked.report;
        if (report.Restorable()) {
            Add("problems", Grade::kOk, "the set is restorable");
            return;
        }
        Add("problems", Grade::kStop,
            "the set has " + Counted(report.problems.size(), "problem") +
                ", which \"zsbtool check\" names");
    }

    /// A restore looks for set 0, .ZRB alone, and T before C.
    void LookAtNames() {
        const ScanFileName& own = set_.Listing().first;
        if (!own.restorable) {
            Add("ending", Grade::kStop,
                "its files are .ZSB, and a restore takes .ZRB: \"zsbtool prepare\" makes them");
            return;
        }
        Add("ending", Grade::kOk, "its files are .ZRB");
        const ScanFileName taken = ListScanSet(set_.Listing().folder, {{}, true}).first;
        if (own.setNumber == 0 && own.letter == taken.letter) {
            Add("choice", Grade::kOk, "it is the set that a restore takes");
        } else {
            Add("choice", Grade::kStop, "a restore looks for " + taken.Text());
        }
    }

    void LookAtPoolName(const std::string& pool) {
        const ScanSetFile* model = set_.Model();
        const std::string stored = model != nullptr ? model->poolName : "";
        const bool same = Ascii::EqualIgnoringCase(stored, pool);
        Add("pool-name", same ? Grade::kOk : Grade::kWarning,
            "the set is of pool \"" + stored + "\"" +
                (same ? "" : ", and it is to go onto \"" + pool + "\""));
    }

    void LookAtSize() {
        const ScanSetFile* model = set_.Model();
        const std::uint64_t wanted = model != nullptr ? model->poolBlocks : 0;
        const std::uint64_t blocks = device_.bytes / kPoolBlockSize;
        const std::string size = ReadableSize(device_.bytes) + ", " + Counted(blocks, "block");
        if (source_.extent.highest && blocks <= *source_.extent.highest) {
            Add("size", Grade::kStop,
                size + ": too small for block " + std::to_string(*source_.extent.highest));
        } else if (blocks != wanted) {
            Add("size", Grade::kWarning,
                size + (blocks < wanted ? ": smaller" : ": larger") + " than the pool with its " +
                    Counted(wanted, "block"));
        } else {
            Add("size", Grade::kOk, size + ", as the pool");
        }
    }

    static std::string Joined(const std::vector<std::string>& words) {
        std::string text;
        for (const std::string& word : words) {
            text += (text.empty() ? "" : ", ") + word;
        }
        return text;
    }

    void LookAtUse() {
        Add("read-only", device_.readOnly ? Grade::kStop : Grade::kOk,
            device_.readOnly ? "it is read-only" : "it can be written");
        const bool mounted = !device_.mountPoints.empty();
        Add("mounted", mounted ? Grade::kStop : Grade::kOk,
            mounted ? "it is mounted at " + Joined(device_.mountPoints) : "it is not mounted");
        const bool held = device_.held || !device_.holders.empty();
        Add("held", held ? Grade::kStop : Grade::kOk,
            !held                     ? "nobody holds it"
            : device_.holders.empty() ? "somebody holds it"
                                      : "it is held by " + Joined(device_.holders));
    }

    void LookAtSuperblock() {
        const bool is32 = device_.magic == kMagicSuperblock32;
        if (device_.readError != 0) {
            Add("superblock", Grade::kStop,
                std::string("its superblock cannot be read: ") + std::strerror(device_.readError));
        } else if (!is32 && device_.magic != kMagicSuperblock64) {
            Add("superblock", Grade::kStop, "there is no superblock on it");
        } else if (const auto format = source_.Format(); format && *format != *device_.magic) {
            Add("superblock", Grade::kStop,
                std::string("its superblock is of a ") + (is32 ? "Z32" : "Z64") +
                    " pool, and the set is of the other format");
        } else {
            Add("superblock", Grade::kOk,
                std::string("its superblock is of a ") + (is32 ? "Z32" : "Z64") + " pool");
        }
    }

    void LookAtIdentity() {
        const DeviceIdentity& identity = device_.identity;
        Add("model", Grade::kOk, identity.model.empty() ? "unknown" : identity.model);
        Add("serial", identity.serial.empty() ? Grade::kWarning : Grade::kOk,
            identity.serial.empty() ? "there is none to compare" : identity.serial);
    }

    const ScanSet& set_;
    const Source& source_;
    const TargetDevice& device_;
    std::vector<Item> items_;
};

class PreflightCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("POOL", pool_, "The pool onto which it is to be restored");
        arguments.Required("DEVICE", device_, "The pool's device");
    }

    ExitStatus Run(Frame& frame) override {
        ScanSet set = OpenSet(frame.settings, path_);
        const TargetDevice device = TargetDevice::Examine(device_);
        const Source source = Source::Read(frame.settings, std::move(set));
        const std::vector<Item> items = Inspection(source, device).Inspect(pool_);
        const auto stops = static_cast<std::size_t>(
            std::ranges::count(items, Grade::kStop, [](const Item& item) { return item.verdict; }));
        const std::string command = RestoreCommand(source);
        if (frame.settings.json) {
            PutDocument(frame.out, items, command);
        } else {
            PutTable(frame.out, items, stops, command);
        }
        return stops == 0 ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    /// An argument that no parser takes for an option.
    static std::string PathArgument(const std::string& path) {
        return ShellQuoted(path.starts_with('-') ? "./" + path : path);
    }

    std::string RestoreCommand(const Source& source) const {
        return std::string("ostrelscan --danger ") + (source.HasUserBlocks() ? "-a " : "") + "-P " +
               PathArgument(source.checked.set.Listing().folder) + " restore " +
               (pool_.starts_with('-') ? "-- " : "") + ShellQuoted(pool_) + " " +
               PathArgument(device_);
    }

    static void PutDocument(Output& out, const std::vector<Item>& items,
                            const std::string& command) {
        JsonDocument json(out, "preflight");
        json.BeginList("items");
        for (const Item& item : items) {
            json.BeginEntry();
            json.Member("check", item.check);
            json.Member("verdict", Word(item.verdict));
            json.Member("text", item.text);
            json.EndObject();
        }
        json.EndList();
        json.Member("restoreCommand", command);
        json.Close();
    }

    static void PutTable(Output& out, const std::vector<Item>& items, std::size_t stops,
                         const std::string& command) {
        const Painter paint(out);
        Table table({{"check"}, {"verdict"}, {"what"}});
        for (const Item& item : items) {
            table.Row({item.check, {Word(item.verdict), ToneOf(item.verdict)}, item.text});
        }
        table.Write(out, paint);
        if (stops != 0) {
            out << paint(Tone::kBad, "do not restore: " + Counted(stops, "stop")) << "\n";
        }
        out << command << "\n";
    }

    std::string path_;
    std::string pool_;
    std::string device_;
};

}  // namespace

extern const CommandRow kPreflightCommand;
const CommandRow kPreflightCommand{"preflight", "Look at a set and a device before a restore",
                                   [] { return std::unique_ptr<Command>(new PreflightCommand); }};

}  // namespace zsbtool
