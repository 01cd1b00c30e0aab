#include "util/zsbtool/setReport.h"

#include <optional>
#include <vector>

#include "util/zsbtool/json.h"
#include "util/zsbtool/output.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

void PutFile(JsonDocument& json, const ScanSetFile& file, std::uint64_t records,
             const std::vector<ScanProblem>& problems) {
    json.BeginEntry();
    json.Member("name", file.name.Text());
    json.Member("number", file.name.fileNumber);
    json.Member("status", problems.empty() ? "good" : "bad");
    json.Member("records", records);
    json.Member("bytes", file.bytes);
    json.Member("compressed", file.Compressed());
    json.Member("flags", file.believable
                             ? FlagWords({.flags = file.flags, .closeTime = file.closeTime})
                             : std::vector<std::string>());
    json.Member("problems", CodesOf(problems));
    json.EndObject();
}

void PutSummary(Output& out, const CheckedSet& checked) {
    if (const ScanSetFile* model = checked.set.Model()) {
        out << "pool " << Printable(model->poolName) << ", " << Counted(model->poolBlocks, "block")
            << ", saved " << TimeText(model->createTime) << "\n";
    }
    out << Counted(checked.set.Files().size(), "file") << ", "
        << Counted(checked.report.records, "record") << ", " << ReadableSize(checked.set.Bytes())
        << "\n";
}

}  // namespace

std::vector<std::string> CodesOf(const std::vector<ScanProblem>& problems) {
    std::vector<std::string> codes;
    codes.reserve(problems.size());
    for (const ScanProblem& problem : problems) {
        codes.emplace_back(problem.code);
    }
    return codes;
}

void PutProblems(JsonDocument& json, const char* name, const std::vector<ScanProblem>& problems) {
    json.BeginList(name);
    for (const ScanProblem& problem : problems) {
        json.BeginEntry();
        json.Member("code", problem.code);
        json.Member("file", problem.file.empty() ? std::nullopt : std::optional(problem.file));
        json.Member("text", problem.text);
        json.EndObject();
    }
    json.EndList();
}

void PutProblems(Output& out, const Painter& paint, const Findings& findings) {
    Table table({{""}, {"code"}, {"file"}, {"what"}});
    for (const ScanProblem& problem : findings.problems) {
        table.Row({{"problem", Tone::kBad}, problem.code, problem.file, problem.text});
    }
    for (const ScanProblem& warning : findings.warnings) {
        table.Row({{"warning", Tone::kWarning}, warning.code, warning.file, warning.text});
    }
    if (!table.Empty()) {
        table.Write(out, paint);
    }
}

std::string Verdict(const ScanSetReport& report) {
    return report.Restorable() ? "restorable"
                               : "not restorable: " + Counted(report.problems.size(), "problem");
}

Tone VerdictTone(const ScanSetReport& report) {
    return report.Restorable() ? Tone::kGood : Tone::kBad;
}

void PutCheckedSet(JsonDocument& json, const CheckedSet& checked) {
    const ScanSet& set = checked.set;
    const ScanSetReport& report = checked.report;
    const ScanSetFile* model = set.Model();
    json.Member("set", set.Listing().folder + set.Listing().first.Text());
    json.Member("restorable", report.Restorable());
    json.Member("scanId", model != nullptr ? std::optional(GuidText(model->scanID)) : std::nullopt);
    json.Member("pool", model != nullptr ? std::optional(model->poolName) : std::nullopt);
    json.Member("poolBlocks", model != nullptr ? std::optional(model->poolBlocks) : std::nullopt);
    json.Member("records", report.records);
    json.BeginList("files");
    for (std::size_t i = 0; i < report.files.size(); ++i) {
        PutFile(json, set.Files()[i], report.files[i].records, report.files[i].problems);
    }
    for (const ScanSetFile& stray : set.Strays()) {
        PutFile(json, stray, 0, stray.problems);
    }
    json.EndList();
    PutProblems(json, "problems", report.problems);
    PutProblems(json, "warnings", report.warnings);
}

void PutCheckedSet(Output& out, const Painter& paint, const CheckedSet& checked) {
    PutSummary(out, checked);
    PutProblems(out, paint,
                {.problems = checked.report.problems, .warnings = checked.report.warnings});
    out << paint(VerdictTone(checked.report), Verdict(checked.report)) << "\n";
}

}  // namespace zsbtool
