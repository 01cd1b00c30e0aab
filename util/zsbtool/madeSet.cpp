#include "util/zsbtool/madeSet.h"

#include "util/zsbtool/json.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

std::uint64_t RecordsOf(const ScanSet& set) {
    std::uint64_t records = 0;
    for (const ScanSetFile& file : set.Files()) {
        records += RecordsInDataBytes(file.dataBytes);
    }
    return records;
}

void PutFile(JsonDocument& json, const ScanSetFile& file) {
    json.BeginEntry();
    json.Member("name", file.name.Text());
    json.Member("records", RecordsInDataBytes(file.dataBytes));
    json.Member("bytes", file.bytes);
    json.Member("compressed", file.Compressed());
    json.EndObject();
}

}  // namespace

ScanSet SetInFolder(const std::string& folder, const ScanFileName& name) {
    return ScanSet(folder, {name.letter, name.restorable});
}

void PutMadeSet(JsonDocument& json, const MadeSet& made) {
    json.Member("made", made.set.has_value());
    json.Member("output", made.path);
    json.BeginList("files");
    if (made.set) {
        for (const ScanSetFile& file : made.set->Files()) {
            PutFile(json, file);
        }
    }
    json.EndList();
    json.Member("records", made.set ? RecordsOf(*made.set) : 0);
    json.Member("bytes", made.set ? made.set->Bytes() : 0);
}

void PutMadeSet(Output& out, const Painter& paint, const MadeSet& made, const std::string& why) {
    if (!made.set) {
        out << paint(Tone::kBad, "nothing made: " + why) << "\n";
        return;
    }
    out << Printable(made.path) << ": " << Counted(made.set->Files().size(), "file") << ", "
        << Counted(RecordsOf(*made.set), "record") << ", " << ReadableSize(made.set->Bytes())
        << "\n";
}

void ReportMadeSet(Frame& frame, const char* command, const ScanSetReport& report,
                   const MadeSet& made) {
    if (frame.settings.json) {
        JsonDocument json(frame.out, command);
        PutMadeSet(json, made);
        PutProblems(json, "problems", report.problems);
        PutProblems(json, "warnings", report.warnings);
        json.Close();
        return;
    }
    const Painter paint(frame.out);
    PutProblems(frame.out, paint, {.problems = report.problems, .warnings = report.warnings});
    PutMadeSet(frame.out, paint, made, Counted(report.problems.size(), "problem"));
}

}  // namespace zsbtool
