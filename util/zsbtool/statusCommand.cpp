#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/json.h"
#include "util/zsbtool/statusMeaning.h"

namespace zsbtool {

namespace {

/// A number, read in one base, and what it means.
struct Reading {
    std::int32_t number;
    std::optional<StatusMeaning> meaning;
};

std::optional<Reading> Explained(std::optional<std::int32_t> number) {
    return number ? std::optional(Reading{*number, ExplainStatus(*number)}) : std::nullopt;
}

void PutMembers(JsonDocument& json, const Reading& reading) {
    const std::optional<StatusMeaning>& meaning = reading.meaning;
    json.Member("number", reading.number);
    json.Member("hex", HexText(reading.number));
    json.Member("source", meaning ? std::optional(meaning->source) : std::nullopt);
    json.Member("name", meaning ? meaning->name : std::nullopt);
    json.Member("text", meaning ? std::optional(meaning->text) : std::nullopt);
}

std::string Line(const Reading& reading) {
    std::string line = std::to_string(reading.number) + " (" + HexText(reading.number) + "): ";
    if (!reading.meaning) {
        return line + "no status that this tool knows\n";
    }
    line += reading.meaning->source + ", ";
    if (reading.meaning->name) {
        line += *reading.meaning->name + ": ";
    }
    return line + reading.meaning->text + '\n';
}

class StatusCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Required("NUMBER", number_,
                           "A status as the screen (decimal) or the log (hexadecimal) shows it");
    }

    ExitStatus Run(Frame& frame) override {
        std::optional<Reading> decimal = Explained(ParseDecimalStatus(number_));
        std::optional<Reading> hexadecimal = Explained(ParseHexStatus(number_));
        if (!decimal && !hexadecimal) {
            throw Failure("\"" + number_ + "\" is no number of 32 bits");
        }
        const bool both = decimal && hexadecimal && decimal->number != hexadecimal->number &&
                          hexadecimal->meaning;
        Report(frame, decimal ? *decimal : *hexadecimal, both ? hexadecimal : std::nullopt);
        return ExitStatus::kGood;
    }

  private:
    /// `inLog` is the other reading of digits that a log may mean.
    static void Report(Frame& frame, const Reading& reading, const std::optional<Reading>& inLog) {
        if (!frame.settings.json) {
            frame.out << Line(reading);
            if (inLog) {
                frame.out << "in a log: " << Line(*inLog);
            }
            return;
        }
        JsonDocument json(frame.out, "status");
        PutMembers(json, reading);
        if (inLog) {
            json.BeginObject("inLog");
            PutMembers(json, *inLog);
            json.EndObject();
        } else {
            json.Member("inLog", std::optional<std::string>());
        }
        json.Close();
    }

    std::string number_;
};

}  // namespace

extern const CommandRow kStatusCommand;
const CommandRow kStatusCommand{"status", "Tell what a status number means",
                                [] { return std::unique_ptr<Command>(new StatusCommand); }};

}  // namespace zsbtool
