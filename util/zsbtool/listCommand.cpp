#include <algorithm>
#include <array>
#include <optional>

#include "util/common/blockTypes.h"
#include "util/common/orderedWork.h"
#include "util/common/scanFileWalk.h"
#include "util/zsbtool/blockNumbers.h"
#include "util/zsbtool/blockTypeNames.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

using TypeCounts = std::array<std::uint64_t, kBlockTypeCount>;

/// Which records are wanted.
struct Filter {
    std::optional<unsigned> type;
    BlockNumbers blocks;

    bool Takes(std::uint64_t block, unsigned ofType) const {
        return blocks.Hold(block) && type.value_or(ofType) == ofType;
    }
};

/// A record that was listed.
struct Listed {
    std::uint64_t block;
    unsigned type;
    std::uint64_t index;  ///< in its file
    std::optional<std::uint64_t> offset;
};

/// Goes through the wanted records of a file; returns why it could not be read to its end, if so.
template <class Take>
std::string Go(const ScanSet& set, const ScanSetFile& file, const Filter& filter,
               Progress& progress, const Take& take) {
    ScanFileWalk walk(set.PathOf(file));
    QuadAndBlock_s record;
    while (walk.Next(&record)) {
        const unsigned type = ClassifyBlock(ReadBlockWords(record.block));
        if (filter.Takes(record.blockNumber, type)) {
            take(Listed{record.blockNumber, type, walk.Count() - 1, walk.Offset()});
        }
    }
    progress.Add(walk.FileBytes());
    return WhyUnread(walk);
}

/// Tells of a file that could not be read to its end; whether it could.
bool TellUnread(const ScanSetFile& file, const std::string& why) {
    if (!why.empty()) {
        Complain(file.name.Text() + ": " + why);
    }
    return why.empty();
}

/// Where the listed records go.
class RecordList {
  public:
    explicit RecordList(Frame& frame, JsonDocument* json) : out_(frame.out), json_(json) {
        out_.Stream();
        if (json_ != nullptr) {
            json_->BeginList("records");
        } else {
            PutRow("block", "type", "file", "index", "offset");
        }
    }

    void Put(const ScanSetFile& file, const Listed& record) {
        if (json_ != nullptr) {
            json_->BeginEntry();
            json_->Member("block", record.block);
            json_->Member("type", kBlockTypes[record.type].name);
            json_->Member("file", file.name.Text());
            json_->Member("index", record.index);
            json_->Member("offset", record.offset);
            json_->EndObject();
        } else {
            PutRow(std::to_string(record.block), kBlockTypes[record.type].name, file.name.Text(),
                   std::to_string(record.index),
                   record.offset ? std::to_string(*record.offset) : "-");
        }
    }

    void Finish() {
        if (json_ != nullptr) {
            json_->EndList();
        }
    }

  private:
    /// The widths are fixed: a list that may be long cannot wait for its widest cell.
    void PutRow(const std::string& block, const std::string& type, const std::string& file,
                const std::string& index, const std::string& offset) {
        const auto padded = [](const std::string& text, std::size_t width) {
            return std::string(width - std::min(width, text.size()), ' ');
        };
        out_ << padded(block, 12) << block << "  " << type << padded(type, 14) << file << "  "
             << padded(index, 6) << index << "  " << padded(offset, 12) << offset << "\n";
    }

    Output& out_;
    JsonDocument* json_;
};

class ListCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("--records", records_, "List every record");
        arguments.Text("--type", type_, "Take blocks of this type alone, by its name or magic");
        arguments.Text("--blocks", blocks_, "Take these blocks alone, as in 17-42");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
    }

    ExitStatus Run(Frame& frame) override {
        Filter filter;
        if (!type_.empty()) {
            filter.type = ParseBlockType(type_);
        }
        if (!blocks_.empty()) {
            filter.blocks = ParseBlockNumbers(blocks_);
        }
        const ScanSet set = OpenSet(frame.settings, path_);
        std::optional<JsonDocument> json;
        if (frame.settings.json) {
            json.emplace(frame.out, "list");
        }
        JsonDocument* document = json ? &*json : nullptr;
        whole_ = true;
        const TypeCounts counts =
            records_ ? ListRecords(frame, set, filter, document) : CountTypes(frame, set, filter);
        if (document != nullptr) {
            PutTypes(*document, counts);
            document->Close();
        } else if (!records_) {
            PutTypes(frame.out, counts);
        }
        return whole_ ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    TypeCounts CountTypes(const Frame& frame, const ScanSet& set, const Filter& filter) {
        struct Counted {
            TypeCounts counts{};
            std::string why;
        };
        Progress progress(frame.settings, "list", set.Bytes());
        const auto count = [&](std::size_t i) {
            Counted file;
            file.why = Go(set, set.Files()[i], filter, progress,
                          [&file](const Listed& record) { file.counts[record.type] += 1; });
            return file;
        };
        TypeCounts counts{};
        OrderedWork<Counted>::Run(set.Files().size(), frame.settings.jobs, count,
                                  [&](std::size_t i, const Counted& file) {
                                      whole_ = TellUnread(set.Files()[i], file.why) && whole_;
                                      for (std::size_t type = 0; type < counts.size(); ++type) {
                                          counts[type] += file.counts[type];
                                      }
                                  });
        return counts;
    }

    TypeCounts ListRecords(Frame& frame, const ScanSet& set, const Filter& filter,
                           JsonDocument* json) {
        Progress progress(frame.settings, "list", set.Bytes());
        RecordList list(frame, json);
        TypeCounts counts{};
        for (const ScanSetFile& file : set.Files()) {
            const std::string why = Go(set, file, filter, progress, [&](const Listed& record) {
                counts[record.type] += 1;
                list.Put(file, record);
            });
            whole_ = TellUnread(file, why) && whole_;
        }
        list.Finish();
        return counts;
    }

    static void PutTypes(JsonDocument& json, const TypeCounts& counts) {
        json.BeginList("types");
        for (std::size_t type = 0; type < counts.size(); ++type) {
            json.BeginEntry();
            json.Member("name", kBlockTypes[type].name);
            json.Member("magic", MagicText(static_cast<unsigned>(type)));
            json.Member("count", counts[type]);
            json.EndObject();
        }
        json.EndList();
    }

    static void PutTypes(Output& out, const TypeCounts& counts) {
        Table table({{"type"}, {"magic"}, {"blocks", true}});
        for (std::size_t type = 0; type < counts.size(); ++type) {
            if (counts[type] != 0) {
                table.Row({kBlockTypes[type].name,
                           MagicText(static_cast<unsigned>(type)).value_or("-"),
                           std::to_string(counts[type])});
            }
        }
        table.Write(out, Painter(out));
    }

    std::string path_;
    std::string type_;
    std::string blocks_;
    bool records_ = false;
    bool whole_ = true;  // every file could be read to its end
};

}  // namespace

extern const CommandRow kListCommand;
const CommandRow kListCommand{"list", "Count the block types of a set, or list its records",
                              [] { return std::unique_ptr<Command>(new ListCommand); }};

}  // namespace zsbtool
