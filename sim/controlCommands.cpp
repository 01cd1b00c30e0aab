#include "sim/controlCommands.h"

#include <algorithm>
#include <array>
#include <limits>

#include "sim/controlArguments.h"
#include "sim/textTools.h"

namespace sim {
namespace {

using Lines = std::vector<std::string>;

constexpr std::uint64_t kAny = std::numeric_limits<std::uint64_t>::max();

CommandResult Error(const std::string& text) {
    return {kExitError, {text}};
}

Lines LinesOf(const std::vector<ConsumerAnswer>& answers) {
    Lines lines;
    for (const ConsumerAnswer& answer : answers) {
        lines.push_back("  " + answer.consumer + " " + DescribeAnswer(answer));
    }
    return lines;
}

CommandResult Describe(const ChangeOutcome& outcome, const std::string& subject,
                       const std::string& done) {
    using Kind = ChangeOutcome::Kind;
    const std::string after = " after " + std::to_string(outcome.elapsed.count()) + " ms";
    CommandResult result{kExitDone, LinesOf(outcome.answers)};
    switch (outcome.kind) {
        case Kind::Done:
            result.lines.push_back(subject + ": " + done + after);
            break;
        case Kind::Vetoed:
            result.status = kExitRefused;
            result.lines.push_back(subject + ": refused by " + outcome.Veto()->consumer + " with " +
                                   std::to_string(outcome.Veto()->refusalStatus) + after);
            break;
        case Kind::TimedOut:
            result.status = kExitSilent;
            result.lines.push_back(subject + ": not changed, no answer" + after);
            break;
        case Kind::Unknown:
            return Error("there is no " + subject);
        case Kind::Busy:
            return Error(subject + ": another change is under way");
        case Kind::NameTaken:
            return Error(subject + ": the new name is taken");
    }
    return result;
}

std::string Subject(ObjectKind kind, const std::string& name) {
    return std::string(KindName(kind)) + " " + name;
}

const std::string& PlainName(const std::string& text) {
    if (!IsPlainName(text)) {
        throw UsageError("\"" + text + "\" can be no name");
    }
    return text;
}

CommandResult ChangeState(Simulation& simulation, ObjectKind kind, const ControlArguments& words) {
    words.Expect(2, 2, {"--forced", "--wait", "--timeout"});
    const std::string& name = words.Word(0);
    const std::string& state = PlainName(words.Word(1));
    return Describe(
        simulation.changes.State(kind, name, state, words.Has("--forced"), words.Timeout()),
        Subject(kind, name), "now " + state);
}

CommandResult Rename(Simulation& simulation, ObjectKind kind, const ControlArguments& words) {
    words.Expect(2, 2, {"--wait", "--timeout"});
    const std::string& newName = PlainName(words.Word(1));
    return Describe(simulation.changes.Rename(kind, words.Word(0), newName, words.Timeout()),
                    Subject(kind, words.Word(0)), "now called " + newName);
}

CommandResult DeleteVolume(Simulation& simulation, const ControlArguments& words) {
    words.Expect(1, 1, {"--wait", "--timeout"});
    return Describe(simulation.changes.DeleteVolume(words.Word(0), words.Timeout()),
                    Subject(ObjectKind::Volume, words.Word(0)), "deleted");
}

CommandResult Zid64(Simulation& simulation, const ControlArguments& words) {
    words.Expect(1, 1, {"--wait", "--timeout"});
    return Describe(simulation.changes.Zid64(words.Word(0), words.Timeout()),
                    Subject(ObjectKind::Volume, words.Word(0)), "moved to 64-bit numbers");
}

Guid GuidOption(const ControlArguments& words, const std::string& option) {
    const auto guid = GuidFromText(words.Option(option, "00000000-0000-0000-0000-000000000000"));
    if (!guid) {
        throw UsageError("\"" + words.Option(option, "") + "\" is no GUID");
    }
    return *guid;
}

CommandResult RaiseEvent(Simulation& simulation, const ControlArguments& words) {
    words.Expect(1, 1,
                 {"--guid", "--from", "--to", "--mode", "--notify", "--old-name", "--new-name",
                  "--new-guid", "--wait", "--timeout"});
    if (!IsKnownEvent(words.Word(0))) {
        return Error("there is no event \"" + words.Word(0) + "\"");
    }
    BusEvent event;
    event.name = words.Word(0);
    event.notifyType = static_cast<std::uint32_t>(
        words.Number("--notify", kNotifyEvent, std::numeric_limits<std::uint32_t>::max()));
    constexpr std::uint64_t kLargestState = std::numeric_limits<std::uint16_t>::max();
    event.oldState = static_cast<std::uint16_t>(words.Number("--from", 3, kLargestState));
    event.newState = static_cast<std::uint16_t>(words.Number("--to", 6, kLargestState));
    event.mode = words.Number("--mode", kUserAbortable, kAny);
    event.guid = GuidOption(words, "--guid");
    event.newGuid = GuidOption(words, "--new-guid");
    event.oldName = words.Option("--old-name", "");
    event.newName = words.Option("--new-name", "");
    const auto answers = simulation.hub.Announce(event, words.Timeout());
    CommandResult result{kExitDone, LinesOf(answers)};
    if (std::any_of(answers.begin(), answers.end(), [](const auto& a) { return a.IsVeto(); })) {
        result.status = kExitRefused;
    } else if (std::any_of(answers.begin(), answers.end(), [](const auto& answer) {
                   return answer.kind == ConsumerAnswer::Kind::Silent;
               })) {
        result.status = kExitSilent;
    }
    result.lines.push_back(event.name + ": delivered to " + std::to_string(answers.size()));
    return result;
}

CommandResult InjectFault(Simulation& simulation, const ControlArguments& words) {
    words.Expect(1, 2, {"--next", "--after"});
    if (words.Word(0) == "clear") {
        simulation.faults.Clear();
        return {};
    }
    const FaultOrder order{words.Word(0), words.WordOr(1, ""), words.Number("--after", 0, kAny),
                           words.Number("--next", 1, kAny)};
    if (order.next == 0) {
        return Error("a fault for no turn at all");
    }
    const std::string wrong = simulation.faults.Add(order);
    if (!wrong.empty()) {
        return Error(wrong);
    }
    simulation.trace.Add("fault", order.kind + " " + order.argument);
    return {};
}

CommandResult SetBadBlocks(Simulation& simulation, const ControlArguments& words) {
    words.Expect(2, 3, {});
    const auto pool = simulation.service.Find(ObjectKind::Pool, words.Word(0));
    const std::string what = words.WordOr(2, "both");
    if (!pool || !pool->image) {
        return Error("pool " + words.Word(0) + " has no served image");
    }
    std::vector<BadBlocks> bad;
    if (words.Word(1) != "none") {
        bad = BadBlocksFromText(words.Word(1), what != "write", what != "read");
        if (bad.empty() || (what != "both" && what != "read" && what != "write")) {
            return Error("not a list of blocks, such as 5,7-9, and read, write or both");
        }
    }
    pool->image->SetBadBlocks(std::move(bad));
    return {};
}

CommandResult FinishJob(Simulation& simulation, const ControlArguments& words) {
    words.Expect(2, 4, {});
    const auto key = ToNumber(words.Word(0));
    const auto status = ToNumber(words.WordOr(2, "0"));
    const auto setter = ToNumber(words.WordOr(3, "0"));
    if (!key || !status || !setter || words.Word(1) != "finish") {
        return Error("job KEY finish [STATUS [SETTER]]");
    }
    const bool ended = simulation.jobs.End(*key, JobState::Finished, *status, *setter);
    return ended ? CommandResult{} : Error("job " + words.Word(0) + " does not run");
}

void ListObjects(const Service& service, ObjectKind kind, Lines& lines) {
    for (const StoredObject& object : service.All(kind)) {
        std::string line =
            Subject(kind, object.name) + " " + object.state + " " + TextOfGuid(object.guid);
        if (!object.device.empty()) {
            line += " " + object.device + (object.image ? " (served)" : "");
        }
        lines.push_back(std::move(line));
    }
}

CommandResult List(Simulation& simulation, const ControlArguments& words) {
    words.Expect(0, 0, {});
    Lines lines;
    ListObjects(simulation.service, ObjectKind::Pool, lines);
    ListObjects(simulation.service, ObjectKind::Volume, lines);
    for (const Job& job : simulation.jobs.All()) {
        lines.push_back("job " + std::to_string(job.key) +
                        (job.kind == JobKind::Verify ? " verify" : " rebuild") + " of pool " +
                        job.pool + ", state " + std::to_string(static_cast<int>(job.state)));
    }
    for (const std::string& file : simulation.conversations.Describe()) {
        lines.push_back("open management " + file);
    }
    for (const Registration& registration : simulation.hub.Registrations()) {
        lines.push_back("registration of " + DescribeRegistration(registration));
    }
    for (const Fault& fault : simulation.faults.Waiting()) {
        lines.push_back("fault " + std::string(NameOf(fault)) + " " + fault.argument +
                        " for the next " + std::to_string(fault.next) + " after " +
                        std::to_string(fault.after));
    }
    return {kExitDone, std::move(lines)};
}

CommandResult PrintTrace(Simulation& simulation, const ControlArguments& words) {
    words.Expect(0, 0, {});
    return {kExitDone, simulation.trace.Lines()};
}

CommandResult Shutdown(Simulation& /*simulation*/, const ControlArguments& words) {
    words.Expect(0, 0, {});
    return {kExitDone, {}, true};
}

template <CommandResult (*Run)(Simulation&, ObjectKind, const ControlArguments&), ObjectKind kind>
CommandResult For(Simulation& simulation, const ControlArguments& words) {
    return Run(simulation, kind, words);
}

struct Command {
    std::string_view name;
    CommandResult (*run)(Simulation&, const ControlArguments&);
};

constexpr std::array<Command, 13> kCommands = {{
    {"list", List},
    {"state", For<ChangeState, ObjectKind::Pool>},
    {"volume-state", For<ChangeState, ObjectKind::Volume>},
    {"rename", For<Rename, ObjectKind::Pool>},
    {"volume-rename", For<Rename, ObjectKind::Volume>},
    {"volume-delete", DeleteVolume},
    {"volume-zid", Zid64},
    {"event", RaiseEvent},
    {"fault", InjectFault},
    {"bad", SetBadBlocks},
    {"job", FinishJob},
    {"trace", PrintTrace},
    {"shutdown", Shutdown},
}};

}  // namespace

CommandResult RunControlCommand(Simulation& simulation, const std::vector<std::string>& words) {
    const std::string name = words.empty() ? "" : words.front();
    const auto* command = std::find_if(kCommands.begin(), kCommands.end(),
                                       [&](const Command& known) { return known.name == name; });
    if (command == kCommands.end()) {
        return Error("there is no command \"" + name + "\"");
    }
    try {
        return command->run(simulation,
                            ControlArguments(std::vector(words.begin() + 1, words.end())));
    } catch (const UsageError& error) {
        return Error(name + ": " + error.what());
    }
}

}  // namespace sim
