#include "util/zsbtool/reportPage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

#include "util/common/blockTypes.h"
#include "util/common/scanSetMap.h"
#include "util/zsbtool/badBlocks.h"
#include "util/zsbtool/blockTypeNames.h"
#include "util/zsbtool/html.h"
#include "util/zsbtool/mapPicture.h"
#include "util/zsbtool/outputs.h"
#include "util/zsbtool/setReport.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// A file's name without folder and ending: a set that is to be restored has another ending.
std::string StemOf(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

bool Saved(const LoggedRun& run, const ScanSet& set) {
    std::map<std::string, std::uint64_t> crcs;
    for (const RunFile& file : run.files) {
        if (file.crc) {
            crcs[StemOf(file.name)] = *file.crc;
        }
    }
    const auto isOfIt = [&crcs](const ScanSetFile& file) {
        const auto found = crcs.find(StemOf(file.name.Text()));
        return file.believable && found != crcs.end() && found->second == file.crc;
    };
    return run.poolBlocks && std::ranges::all_of(set.Files(), isOfIt);
}

/// "17, 20 to 24".
std::string Ranges(const std::vector<std::uint64_t>& blocks) {
    std::string text;
    for (std::size_t i = 0; i < blocks.size();) {
        std::size_t end = i + 1;
        while (end < blocks.size() && blocks[end] == blocks[end - 1] + 1) {
            ++end;
        }
        text += (text.empty() ? "" : ", ") + std::to_string(blocks[i]);
        text += end - i > 1 ? " to " + std::to_string(blocks[end - 1]) : "";
        i = end;
    }
    return text;
}

std::string Hex(std::uint32_t number) {
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%08x", number);
    return text.data();
}

std::string SubjectOf(const ScanSet& set) {
    return set.Model() == nullptr ? "Scan set" : "Scan set of pool " + set.Model()->poolName;
}

/// The times between which the files were written.
std::string SavedText(const ScanSet& set) {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    for (const ScanSetFile& file : set.Files()) {
        if (file.believable) {
            first = first == 0 ? file.createTime : std::min(first, file.createTime);
            last = std::max({last, file.createTime, file.closeTime});
        }
    }
    return TimeText(first) + " to " + TimeText(last);
}

class Report {
  public:
    Report(OutputFile& file, const ReportContent& content)
        : content_(content),
          set_(content.checked.set),
          report_(content.checked.report),
          page_(file, SubjectOf(set_) + ": " + Verdict(report_)) {}

    void Write() {
        page_.Subject(SubjectOf(set_));
        page_.Paragraph(report_.Restorable() ? "good" : "bad", Verdict(report_));
        PutFacts();
        PutFindings();
        PutUnreadable();
        page_.Heading("Where the block types lie");
        page_.Markup(MapSvg(content_.map));
        PutFiles();
        PutTypes();
        page_.Finish();
    }

  private:
    void PutFacts() {
        page_.Heading("What was saved");
        page_.BeginTable("facts", {{"what"}, {"value"}});
        if (const ScanSetFile* model = set_.Model()) {
            page_.Row({"pool", model->poolName});
            page_.Row({"size of the pool", Counted(model->poolBlocks, "block")});
            page_.Row({"saved", SavedText(set_)});
            page_.Row({"scan", GuidText(model->scanID)});
            page_.Row({"form", model->Compressed() ? "compressed" : "raw"});
        }
        page_.Row({"folder", set_.Listing().folder});
        page_.Row({"files", std::to_string(set_.Files().size())});
        page_.Row({"records", std::to_string(report_.records)});
        page_.Row({"size of the files", ReadableSize(set_.Bytes())});
        page_.EndTable();
    }

    void PutFindings() {
        page_.Heading("Findings");
        if (report_.problems.empty() && report_.warnings.empty()) {
            page_.Paragraph("note", "None.");
            return;
        }
        page_.BeginTable("findings", {{"kind"}, {"code"}, {"file"}, {"what"}});
        for (const ScanProblem& problem : report_.problems) {
            page_.Row({"problem", problem.code, problem.file, problem.text});
        }
        for (const ScanProblem& warning : report_.warnings) {
            page_.Row({"warning", warning.code, warning.file, warning.text});
        }
        page_.EndTable();
    }

    void PutTypes() {
        page_.Heading("Block types");
        page_.BeginTable("types", {{"type"}, {"magic"}, {"blocks", true}});
        for (unsigned type = 0; type < kBlockTypeCount; ++type) {
            if (report_.types[type] != 0) {
                page_.Row({kBlockTypes[type].name, MagicText(type).value_or(""),
                           std::to_string(report_.types[type])});
            }
        }
        page_.EndTable();
    }

    void PutUnreadable() {
        page_.Heading("Unreadable blocks");
        if (content_.log.empty()) {
            page_.Paragraph("note", "No log was given, so nothing is known of read errors.");
            return;
        }
        const std::optional<std::size_t> number = RunThatSaved(set_, content_.runs);
        if (!number) {
            page_.Paragraph("note", "No run of " + content_.log +
                                        " saved these files, so nothing is known of read errors.");
            return;
        }
        const LoggedRun& run = content_.runs[*number];
        const BadBlocks bad = StudyBadBlocks(run);
        const std::string where =
            " in run " + std::to_string(*number + 1) + " of " + content_.log + ".";
        page_.Paragraph(bad.blocks.empty() ? "note" : "bad",
                        Counted(bad.blocks.size(), "unreadable block") + where);
        if (!bad.blocks.empty()) {
            page_.Paragraph("blocks", Ranges(bad.blocks));
        }
        if (!bad.complete) {
            page_.Paragraph("bad", run.closed ? "That is not all: the log left some out."
                                              : "That may not be all: the run was not closed.");
        }
    }

    void PutFiles() {
        page_.Heading("Files");
        page_.BeginTable("files", {{"file"},
                                   {"records", true},
                                   {"size", true},
                                   {"created"},
                                   {"CRC"},
                                   {"flags"},
                                   {"problems"}});
        for (std::size_t i = 0; i < report_.files.size(); ++i) {
            PutFile(set_.Files()[i], report_.files[i].records, report_.files[i].problems);
        }
        for (const ScanSetFile& stray : set_.Strays()) {
            PutFile(stray, 0, stray.problems);
        }
        page_.EndTable();
    }

    void PutFile(const ScanSetFile& file, std::uint64_t records,
                 const std::vector<ScanProblem>& problems) {
        std::vector<std::string> row = {file.name.Text(), std::to_string(records),
                                        ReadableSize(file.bytes)};
        if (file.believable) {
            row.push_back(TimeText(file.createTime));
            row.push_back(Hex(file.crc));
            row.push_back(Joined(FlagWords({.flags = file.flags, .closeTime = file.closeTime})));
        } else {
            row.insert(row.end(), 3, "");
        }
        row.push_back(Joined(CodesOf(problems)));
        page_.Row(row);
    }

    const ReportContent& content_;
    const ScanSet& set_;
    const ScanSetReport& report_;
    HtmlPage page_;
};

}  // namespace

std::optional<std::size_t> RunThatSaved(const ScanSet& set, const std::vector<LoggedRun>& runs) {
    for (std::size_t i = set.Files().empty() ? 0 : runs.size(); i-- > 0;) {
        if (Saved(runs[i], set)) {
            return i;
        }
    }
    return {};
}

void WriteReport(OutputFile& file, const ReportContent& content) {
    Report(file, content).Write();
}

}  // namespace zsbtool
