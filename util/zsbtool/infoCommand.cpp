#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>

#include "util/common/scanFileWalk.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/setReport.h"
#include "util/zsbtool/table.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// Four bytes of a header as text, "SCAN" in a sound one.
std::string SignatureText(std::uint32_t signature) {
    std::string text;
    for (unsigned i = 0; i < 4; ++i) {
        text += static_cast<char>(signature >> (8 * i) & 0xFF);
    }
    return text;
}

std::string BytesText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

/// A file that was never closed has no time of it.
std::optional<std::string> CloseTimeText(std::uint32_t closeTime) {
    return closeTime == 0 ? std::nullopt : std::optional(TimeText(closeTime));
}

/// Shows every field of a header to `visit`, by its name, in the order of the file.
template <class Visit>
void VisitFields(const ScanFileHeader_s& header, const Visit& visit) {
    visit("signature", SignatureText(header.signature));
    visit("headerVersion", unsigned{header.headerVersion});
    visit("headerRevision", unsigned{header.headerRevision});
    visit("createTime", TimeText(header.createTime));
    visit("closeTime", CloseTimeText(header.closeTime));
    visit("scanID", GuidText(GUID_t(header.scanID)));
    visit("poolBlocks", std::uint64_t{header.poolBlocks});
    visit("fileEof", std::uint64_t{header.fileEof});
    visit("dataBytes", std::uint64_t{header.dataBytes});
    visit("crc", std::uint32_t{header.crc});
    visit("flags", FlagWords({.flags = header.flags, .closeTime = header.closeTime}));
    visit("fileNumber", std::uint32_t{header.fileNumber});
    visit("compressionLevel", std::int32_t{header.compressionLevel});
    visit("versionMajor", unsigned{header.versionMajor});
    visit("versionMinor", unsigned{header.versionMinor});
    visit("reserved", BytesText(header.reserved));
    visit("poolName", PoolNameOf(header));
    visit("trailerSignature", SignatureText(header.trailerSignature));
}

std::string Shown(const std::string& text) {
    return text;
}
std::string Shown(const std::optional<std::string>& text) {
    return text.value_or("-");
}
template <std::integral Number>
std::string Shown(Number number) {
    return std::to_string(number);
}
std::string Shown(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

/// The name behind a path's folder.
std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsFolder(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        throw Failure(Printable(path), errno);
    }
    return S_ISDIR(facts.st_mode);
}

std::vector<std::string> FlagsOf(const ScanSetFile& file) {
    return file.believable ? FlagWords({.flags = file.flags, .closeTime = file.closeTime})
                           : std::vector<std::string>();
}

/// What a set's headers say in sum.
struct Sums {
    std::size_t files = 0;
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;

    explicit Sums(const ScanSet& set) : files(set.Files().size()), bytes(set.Bytes()) {
        for (const ScanSetFile& file : set.Files()) {
            records += RecordsInDataBytes(file.dataBytes);
        }
    }
};

std::vector<ScanProblem> ProblemsOf(const ScanSet& set) {
    std::vector<ScanProblem> problems = set.Problems();
    for (const std::vector<ScanSetFile>* files : {&set.Files(), &set.Strays()}) {
        for (const ScanSetFile& file : *files) {
            problems.insert(problems.end(), file.problems.begin(), file.problems.end());
        }
    }
    return problems;
}

void PutSetDocument(Output& out, const ScanSet& set, const std::vector<ScanProblem>& problems) {
    const ScanSetFile* model = set.Model();
    const Sums sums(set);
    JsonDocument json(out, "info");
    json.Member("set", set.Listing().folder + set.Listing().first.Text());
    json.Member("scanId", model != nullptr ? std::optional(GuidText(model->scanID)) : std::nullopt);
    json.Member("pool", model != nullptr ? std::optional(model->poolName) : std::nullopt);
    json.Member("poolBlocks", model != nullptr ? std::optional(model->poolBlocks) : std::nullopt);
    json.Member("files", sums.files);
    json.Member("records", sums.records);
    json.Member("bytes", sums.bytes);
    json.BeginList("table");
    for (const ScanSetFile& file : set.Files()) {
        json.BeginEntry();
        json.Member("name", file.name.Text());
        json.Member("records", RecordsInDataBytes(file.dataBytes));
        json.Member("bytes", file.bytes);
        json.Member("createTime",
                    file.believable ? std::optional(TimeText(file.createTime)) : std::nullopt);
        json.Member("closeTime", CloseTimeText(file.closeTime));
        json.Member("flags", FlagsOf(file));
        json.EndObject();
    }
    json.EndList();
    PutProblems(json, "problems", problems);
    json.Close();
}

void PutSetTable(Output& out, const ScanSet& set, const std::vector<ScanProblem>& problems) {
    const Painter paint(out);
    Table table({{"file"}, {"records", true}, {"size", true}, {"created"}, {"closed"}, {"flags"}});
    for (const ScanSetFile& file : set.Files()) {
        table.Row({file.name.Text(), std::to_string(RecordsInDataBytes(file.dataBytes)),
                   ReadableSize(file.bytes), file.believable ? TimeText(file.createTime) : "-",
                   CloseTimeText(file.closeTime).value_or("-"), Shown(FlagsOf(file))});
    }
    table.Write(out, paint);
    const Sums sums(set);
    if (const ScanSetFile* model = set.Model()) {
        out << "pool " << Printable(model->poolName) << ", " << Counted(model->poolBlocks, "block")
            << ", scan " << GuidText(model->scanID) << "\n";
    }
    out << Counted(sums.files, "file") << ", " << Counted(sums.records, "record") << ", "
        << ReadableSize(sums.bytes) << "\n";
    PutProblems(out, paint, {.problems = problems, .warnings = {}});
}

class InfoCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.ChoosesSet();
        arguments.Required("SET|FILE", path_, "A folder with a set, or one file");
    }

    ExitStatus Run(Frame& frame) override {
        return IsFolder(path_) ? TellSet(frame) : TellFile(frame);
    }

  private:
    ExitStatus TellSet(Frame& frame) const {
        const ScanSet set = OpenSet(frame.settings, path_);
        const std::vector<ScanProblem> problems = ProblemsOf(set);
        if (frame.settings.json) {
            PutSetDocument(frame.out, set, problems);
        } else {
            PutSetTable(frame.out, set, problems);
        }
        return problems.empty() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    ExitStatus TellFile(Frame& frame) const {
        const ScanFileWalk walk(path_);
        if (walk.Ended() == ScanFileWalk::End::kUnreadable) {
            throw Failure(Printable(path_), walk.SystemError());
        }
        const std::vector<ScanProblem> problems = HeaderProblems(walk, NameOf(path_));
        if (frame.settings.json) {
            PutFileDocument(frame.out, walk, problems);
        } else {
            PutFileTable(frame.out, walk, problems);
        }
        return problems.empty() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

    void PutFileDocument(Output& out, const ScanFileWalk& walk,
                         const std::vector<ScanProblem>& problems) const {
        JsonDocument json(out, "info");
        json.Member("file", NameOf(path_));
        json.Member("bytes", walk.FileBytes());
        if (walk.HasHeader()) {
            json.BeginObject("header");
            VisitFields(walk.Header(),
                        [&json](const char* name, const auto& value) { json.Member(name, value); });
            json.EndObject();
        } else {
            json.Member("header", std::optional<bool>());
        }
        PutProblems(json, "problems", problems);
        json.Close();
    }

    static void PutFileTable(Output& out, const ScanFileWalk& walk,
                             const std::vector<ScanProblem>& problems) {
        const Painter paint(out);
        Table table({{"field"}, {"value"}});
        if (walk.HasHeader()) {
            VisitFields(walk.Header(), [&table](const char* name, const auto& value) {
                table.Row({name, Shown(value)});
            });
            table.Write(out, paint);
        }
        PutProblems(out, paint, {.problems = problems, .warnings = {}});
    }

    std::string path_;
};

}  // namespace

extern const CommandRow kInfoCommand;
const CommandRow kInfoCommand{"info", "Show the headers of a set or of one file",
                              [] { return std::unique_ptr<Command>(new InfoCommand); }};

}  // namespace zsbtool
