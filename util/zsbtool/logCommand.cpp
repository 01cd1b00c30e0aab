#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/runLog.h"
#include "util/zsbtool/statusMeaning.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

std::optional<std::string> TimeOf(const std::optional<std::uint64_t>& seconds) {
    return seconds ? std::optional(TimeText(*seconds)) : std::nullopt;
}

void PutOptions(JsonDocument& json, const std::optional<RunOptions>& options) {
    if (!options) {
        json.Member("options", std::optional<bool>());
        return;
    }
    json.BeginObject("options");
    json.Member("path", options->path);
    json.Member("deviceName", options->deviceName);
    json.Member("poolName", options->poolName);
    json.Member("compress", options->compress);
    json.Member("sectors", options->sectors);
    json.Member("start", options->start);
    json.Member("end", options->end);
    json.EndObject();
}

void PutFiles(JsonDocument& json, const std::vector<RunFile>& files) {
    json.BeginList("files");
    for (const RunFile& file : files) {
        json.BeginEntry();
        json.Member("name", file.name);
        json.Member("status", file.status);
        json.Member("crc", file.crc);
        json.Member("total", file.total);
        json.Member("current", file.current);
        json.EndObject();
    }
    json.EndList();
}

void PutStatus(JsonDocument& json, const std::optional<std::int32_t>& status) {
    const auto meaning = status ? ExplainStatus(*status) : std::nullopt;
    json.Member("status", status);
    json.Member("statusName", meaning ? meaning->name : std::nullopt);
    json.Member("statusText", meaning ? std::optional(meaning->text) : std::nullopt);
}

void PutRun(JsonDocument& json, const LoggedRun& run, std::size_t number) {
    json.BeginEntry();
    json.Member("number", number);
    json.Member("arguments", run.arguments);
    PutOptions(json, run.options);
    json.Member("start", TimeOf(run.startTime));
    json.Member("end", TimeOf(run.endTime));
    json.Member("closed", run.closed);
    PutFiles(json, run.files);
    json.Member("readErrors", run.readErrors);
    json.Member("writeErrors", run.writeErrors);
    json.Member("messages", run.messages);
    PutStatus(json, run.status);
    json.EndObject();
}

Cell StatusCell(const LoggedRun& run) {
    if (!run.closed) {
        return {"not closed", Tone::kBad};
    }
    if (!run.status) {
        return {"not told", Tone::kWarning};
    }
    if (*run.status == 0) {
        return {"good", Tone::kGood};
    }
    const auto meaning = ExplainStatus(*run.status);
    const std::string text = meaning ? ", " + meaning->text : "";
    return {std::to_string(*run.status) + text, Tone::kBad};
}

Cell ErrorCell(std::uint64_t errors) {
    return {std::to_string(errors), errors == 0 ? Tone::kPlain : Tone::kBad};
}

/// The arguments behind the program's name.
std::string Typed(const LoggedRun& run) {
    std::string typed;
    for (std::size_t i = 1; i < run.arguments.size(); ++i) {
        typed += (i == 1 ? "" : " ") + run.arguments[i];
    }
    return typed;
}

void PutTable(Frame& frame, const std::vector<LoggedRun>& runs, std::size_t first) {
    Table table({{"run", true},
                 {"start"},
                 {"end"},
                 {"files", true},
                 {"read errors", true},
                 {"write errors", true},
                 {"arguments"},
                 {"status"}});
    for (std::size_t i = first; i < runs.size(); ++i) {
        const LoggedRun& run = runs[i];
        table.Row({std::to_string(i + 1), TimeOf(run.startTime).value_or("-"),
                   TimeOf(run.endTime).value_or("-"), std::to_string(run.files.size()),
                   ErrorCell(run.readErrors), ErrorCell(run.writeErrors), Typed(run),
                   StatusCell(run)});
    }
    table.Write(frame.out, Painter(frame.out));
}

/// The files and lines of one run.
void PutDetails(Frame& frame, const LoggedRun& run) {
    const Painter paint(frame.out);
    Table table({{"file"}, {"blocks", true}, {"crc"}, {"status"}});
    for (const RunFile& file : run.files) {
        const auto crc = file.crc ? std::to_string(*file.crc) : "-";
        const Tone tone = file.status == 0 ? Tone::kGood : Tone::kBad;
        table.Row({file.name,
                   std::to_string(file.current),
                   crc,
                   {file.status == 0 ? "good" : std::to_string(file.status), tone}});
    }
    if (!table.Empty()) {
        frame.out << "\n";
        table.Write(frame.out, paint);
    }
    frame.out << "\n";
    for (const std::string& message : run.messages) {
        frame.out << Printable(message) << "\n";
    }
}

class LogCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Flag("--last", last_, "The last run alone");
        arguments.Optional("LOG", log_, "The log, or its folder (default: ostrelscan.log)");
    }

    ExitStatus Run(Frame& frame) override {
        const std::vector<LoggedRun> runs = ReadRunLog(log_);
        if (last_ && runs.empty()) {
            throw Failure(Printable(log_) + ": there is no run");
        }
        const std::size_t first = last_ ? runs.size() - 1 : 0;
        if (frame.settings.json) {
            JsonDocument json(frame.out, "log");
            json.BeginList("runs");
            for (std::size_t i = first; i < runs.size(); ++i) {
                PutRun(json, runs[i], i + 1);
            }
            json.EndList();
            json.Close();
            return ExitStatus::kGood;
        }
        PutTable(frame, runs, first);
        if (last_) {
            PutDetails(frame, runs.back());
        }
        return ExitStatus::kGood;
    }

  private:
    std::string log_ = "ostrelscan.log";
    bool last_ = false;
};

}  // namespace

extern const CommandRow kLogCommand;
const CommandRow kLogCommand{"log", "Tell every run of an ostrelscan.log",
                             [] { return std::unique_ptr<Command>(new LogCommand); }};

}  // namespace zsbtool
