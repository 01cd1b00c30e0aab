#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "util/common/crc.h"
#include "util/common/orderedWork.h"
#include "util/common/scanFileMaker.h"
#include "util/common/scanFileStudy.h"
#include "util/common/scanSet.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/setReport.h"
#include "util/zsbtool/setTables.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

using Writers = std::vector<std::unique_ptr<TableWriter>>;

/// A text for a cell, or nothing.
TableValue TextOrNothing(const std::string& text) {
    return text.empty() ? TableValue() : TableValue(std::string_view(text));
}

/// A record as its row needs it.
struct RecordFacts {
    std::uint64_t block;
    std::uint32_t crc32;
    unsigned type;

    explicit RecordFacts(const QuadAndBlock_s& record)
        : block(record.blockNumber),
          crc32(~Ostrel::updateCRC(kScanFileCrcStart, record.block, kPoolBlockSize)),
          type(ClassifyBlock(ReadBlockWords(record.block))) {}
};

/// What one file came to.
struct FileFacts {
    ScanFileStudy study;
    std::vector<RecordFacts> records;  ///< empty where they were written meanwhile
};

/// Writes a set into tables, its records in the order of the set.
class Export {
  public:
    Export(const ScanSet& set, Writers& writers, bool content)
        : set_(set), writers_(writers), content_(content), problems_(set.Problems()) {}

    void Run(const Settings& settings) {
        Progress progress(settings, "export", set_.Bytes());
        const auto tell = [&progress](std::uint64_t bytes) { progress.Add(bytes); };
        // Blocks in memory would be many, and the database is one thread's anyway.
        const unsigned jobs = content_ ? 1 : settings.jobs;
        OrderedWork<FileFacts>::Run(
            set_.Files().size(), jobs, [&](std::size_t i) { return Read(i, tell); },
            [this](std::size_t i, const FileFacts& facts) { Put(set_.Files()[i], facts); });
        for (const ScanSetFile& stray : set_.Strays()) {
            std::ranges::copy(stray.problems, std::back_inserter(problems_));
        }
        PutSet();
    }

    std::uint64_t Records() const { return records_; }
    const std::vector<ScanProblem>& Problems() const { return problems_; }

  private:
    FileFacts Read(std::size_t i, const ScanProgress& tell) {
        const std::string name = set_.Files()[i].name.Text();
        FileFacts facts;
        std::uint64_t index = 0;
        const auto take = [&](const QuadAndBlock_s& record) {
            if (content_) {
                PutRecord(RecordFacts(record), name, index++, record.block);
            } else {
                facts.records.emplace_back(record);
            }
        };
        facts.study = StudyScanFile(set_.Listing().folder, name, tell, take);
        return facts;
    }

    void PutRow(SetTable table, std::span<const TableValue> values) {
        for (const std::unique_ptr<TableWriter>& writer : writers_) {
            writer->Row(table, values);
        }
    }

    void PutRecord(const RecordFacts& record, const std::string& file, std::uint64_t index,
                   const char* content) {
        std::vector<TableValue> row = {record.block,
                                       std::string_view(kBlockTypes[record.type].name),
                                       std::string_view(file), index, std::uint64_t{record.crc32}};
        if (content != nullptr) {
            row.emplace_back(
                std::span(reinterpret_cast<const unsigned char*>(content), kPoolBlockSize));
        }
        PutRow(SetTable::kRecords, row);
    }

    void Put(const ScanSetFile& file, const FileFacts& facts) {
        const std::string name = file.name.Text();
        for (std::size_t i = 0; i < facts.records.size(); ++i) {
            PutRecord(facts.records[i], name, i, nullptr);
        }
        std::vector<ScanProblem> problems = file.problems;
        std::ranges::copy(facts.study.problems, std::back_inserter(problems));
        std::ranges::copy(problems, std::back_inserter(problems_));
        records_ += facts.study.records;
        PutFile(file, facts.study.records, Joined(CodesOf(problems)));
    }

    void PutFile(const ScanSetFile& file, std::uint64_t records, const std::string& problems) {
        const std::string name = file.name.Text();
        const std::string created = file.believable ? TimeText(file.createTime) : "";
        const std::string closed = file.closeTime != 0 ? TimeText(file.closeTime) : "";
        const std::string flags =
            file.believable ? Joined(FlagWords({.flags = file.flags, .closeTime = file.closeTime}))
                            : "";
        const TableValue crc =
            file.believable ? TableValue(std::uint64_t{ReadScanFileHeader(set_.PathOf(file)).crc})
                            : TableValue();
        PutRow(SetTable::kFiles,
               std::vector<TableValue>{std::string_view(name), std::uint64_t{file.name.fileNumber},
                                       TextOrNothing(created), TextOrNothing(closed),
                                       std::string_view(flags), std::uint64_t{file.Compressed()},
                                       file.bytes, records, crc, std::string_view(problems)});
    }

    void PutSet() {
        const ScanSetFile* model = set_.Model();
        const std::string path = ValidUtf8(set_.Listing().folder + set_.Listing().first.Text());
        const std::string scanId = model != nullptr ? GuidText(model->scanID) : "";
        const std::string pool = model != nullptr ? ValidUtf8(model->poolName) : "";
        const std::string created = model != nullptr ? TimeText(model->createTime) : "";
        const std::string problems = Joined(CodesOf(problems_));
        PutRow(SetTable::kSets,
               std::vector<TableValue>{
                   std::string_view(path), TextOrNothing(scanId), TextOrNothing(pool),
                   model != nullptr ? TableValue(model->poolBlocks) : TableValue(),
                   TextOrNothing(created), std::uint64_t{set_.Files().size()}, records_,
                   std::string_view(problems)});
    }

    const ScanSet& set_;
    Writers& writers_;
    const bool content_;
    std::uint64_t records_ = 0;
    std::vector<ScanProblem> problems_;
};

class ExportCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Text("-o,--output", database_, "A file for an SQLite database");
        arguments.Text("--csv", csv_, "A folder, new or empty, for the same tables as text");
        arguments.Flag("--content", content_, "Add the bytes of the blocks");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
    }

    ExitStatus Run(Frame& frame) override {
        if (database_.empty() && csv_.empty()) {
            throw Failure("export needs --output, --csv or both");
        }
        const ScanSet set = OpenSet(frame.settings, path_);
        Writers writers = MakeWriters(frame.outputs);
        Export tables(set, writers, content_);
        tables.Run(frame.settings);
        for (const std::unique_ptr<TableWriter>& writer : writers) {
            writer->Commit();
        }
        if (frame.settings.json) {
            PutDocument(frame.out, set, tables);
        } else {
            PutText(frame.out, set, tables);
        }
        return tables.Problems().empty() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    Writers MakeWriters(Outputs& outputs) const {
        const std::vector<TableLayout> layouts = TableLayouts(content_);
        Writers writers;
        if (!database_.empty()) {
            writers.push_back(MakeDatabase(outputs, database_, layouts));
        }
        if (!csv_.empty()) {
            writers.push_back(MakeCsvFolder(outputs, csv_, layouts));
        }
        return writers;
    }

    static std::optional<std::string> PathOrNothing(const std::string& path) {
        return path.empty() ? std::nullopt : std::optional(path);
    }

    void PutDocument(Output& out, const ScanSet& set, const Export& tables) const {
        JsonDocument json(out, "export");
        json.Member("database", PathOrNothing(database_));
        json.Member("csv", PathOrNothing(csv_));
        json.Member("files", set.Files().size());
        json.Member("records", tables.Records());
        PutProblems(json, "problems", tables.Problems());
        json.Close();
    }

    void PutText(Output& out, const ScanSet& set, const Export& tables) const {
        PutProblems(out, Painter(out), {.problems = tables.Problems(), .warnings = {}});
        for (const std::string& path : {database_, csv_}) {
            if (!path.empty()) {
                out << Printable(path) << ": " << Counted(set.Files().size(), "file") << ", "
                    << Counted(tables.Records(), "record") << "\n";
            }
        }
    }

    std::string path_;
    std::string database_;
    std::string csv_;
    bool content_ = false;
};

}  // namespace

extern const CommandRow kExportCommand;
const CommandRow kExportCommand{"export", "Write a set as tables, to be asked in SQL",
                                [] { return std::unique_ptr<Command>(new ExportCommand); }};

}  // namespace zsbtool
