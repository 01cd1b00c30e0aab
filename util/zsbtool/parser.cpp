#include "util/zsbtool/parser.h"

#include <sched.h>

#include <CLI/CLI.hpp>
#include <charconv>

#include "util/zsbtool/commands.h"
#include "util/zsbtool/failure.h"

// The one file that includes the option parser's header, which takes seconds to compile.

namespace zsbtool {

namespace {

constexpr unsigned kMostJobs = 256;
constexpr const char* kGroup = "Commands";  // in the help

std::uint64_t ParseNumber(const std::string& text) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw CLI::ValidationError("\"" + text + "\" is no number");
    }
    return number;
}

unsigned ParseJobs(const std::string& text) {
    const std::uint64_t number = ParseNumber(text);
    if (number < 1 || number > kMostJobs) {
        throw CLI::ValidationError("--jobs takes a number from 1 to " + std::to_string(kMostJobs));
    }
    return static_cast<unsigned>(number);
}

/// The cores that this process may use.
unsigned Cores() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    if (sched_getaffinity(0, sizeof cores, &cores) != 0) {
        return 1;
    }
    return std::clamp(static_cast<unsigned>(CPU_COUNT(&cores)), 1U, kMostJobs);
}

CLI::Option* AddPositional(CLI::App& parser, const std::string& name, std::string& value,
                           const std::string& what) {
    return parser.add_option(name, value, what)->type_name("");
}

/// A command and its part of the parser.
struct Entry {
    std::unique_ptr<Command> command;
    CLI::App* parser;
};

Entry AddCommand(CLI::App& parser, const CommandRow& row, Settings& settings) {
    CLI::App* own = parser.add_subcommand(row.name, row.summary)->group(kGroup);
    own->set_help_flag("-h,--help", "Show this help and end");
    own->footer("Exit status: 0 good, 1 could not run, 2 the set or the comparison has faults.");
    own->add_flag("-q,--quiet", settings.quiet, "Nothing but the result");
    Entry entry{row.make(), own};
    Arguments arguments(*own, settings);
    entry.command->Declare(arguments);
    return entry;
}

std::string HelpOf(const CLI::App& parser, const std::string& command) {
    const auto help = [&parser](const CLI::App& app, const std::string& name) {
        return parser.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
    };
    if (command.empty()) {
        return help(parser, "zsbtool");
    }
    const auto named = [&command](const CLI::App* one) { return one->get_name() == command; };
    const std::vector<const CLI::App*> found = parser.get_subcommands(named);
    if (found.empty()) {
        throw Failure("there is no command \"" + command + "\"");
    }
    return help(*found.front(), "zsbtool " + command);
}

/// The command line as the library reads it.
class Parser {
  public:
    explicit Parser(Settings& settings) {
        settings.jobs = Cores();
        parser_.require_subcommand(0, 1);
        parser_.set_help_flag("-h,--help", "Show this help and end");
        parser_.set_version_flag("--version", kVersion, "Show the version and end");
        parser_.get_formatter()->label("SUBCOMMAND", "COMMAND");
        parser_.footer("\"zsbtool help COMMAND\" tells more of one command.");
        for (const CommandRow* row : Commands()) {
            commands_.push_back(AddCommand(parser_, *row, settings));
        }
        help_ = parser_.add_subcommand("help", "Show the help of a command")->group(kGroup);
        AddPositional(*help_, "COMMAND", helpAbout_, "The command");
    }

    Request Read(int argc, const char* const* argv) {
        parser_.parse(argc, argv);
        if (help_->parsed()) {
            return {nullptr, HelpOf(parser_, helpAbout_)};
        }
        for (Entry& entry : commands_) {
            if (entry.parser->parsed()) {
                return {std::move(entry.command), ""};
            }
        }
        throw Failure("no command given");
    }

    /// The help of what was asked about.
    std::string Help() { return parser_.help(); }

  private:
    static constexpr const char* kVersion =
        "zsbtool (OSTREL) " ZSBTOOL_VERSION
        "\nLooks into sets of scan files, proves them, and prepares them for a restore.";

    CLI::App parser_{"Looks into sets of scan files, proves them, and prepares them for a restore.",
                     "zsbtool"};
    std::vector<Entry> commands_;
    CLI::App* help_ = nullptr;
    std::string helpAbout_;
};

}  // namespace

void Arguments::Reports() {
    parser_.add_flag("--json", settings_.json, "One JSON document on standard output");
}

void Arguments::Parallel() {
    const auto take = [&settings = settings_](const std::string& text) {
        settings.jobs = ParseJobs(text);
    };
    parser_
        .add_option_function<std::string>("-j,--jobs", take,
                                          "How many files to work on at once (default: the cores)")
        ->type_name("N");
}

void Arguments::ChoosesSet() {
    const auto takePrefix = [&settings = settings_](const std::string& text) {
        settings.letter = text.front();
    };
    const auto takeEnding = [&settings = settings_](const std::string& text) {
        settings.zsb = text == "zsb";
        settings.zrb = text == "zrb";
    };
    parser_
        .add_option_function<std::string>("--prefix", takePrefix, "Take the files of this letter")
        ->type_name("T|C")
        ->transform(CLI::IsMember({"T", "C"}, CLI::ignore_case));
    parser_
        .add_option_function<std::string>("--ending", takeEnding, "Take the files of this ending")
        ->type_name("zsb|zrb")
        ->transform(CLI::IsMember({"zsb", "zrb"}, CLI::ignore_case));
}

void Arguments::Required(const std::string& name, std::string& value, const std::string& what) {
    AddPositional(parser_, name, value, what)->required();
}

void Arguments::Optional(const std::string& name, std::string& value, const std::string& what) {
    AddPositional(parser_, name, value, what);
}

void Arguments::Several(const std::string& name, std::vector<std::string>& values,
                        const std::string& what) {
    parser_.add_option(name, values, what)->type_name("")->required();
}

void Arguments::Flag(const std::string& names, bool& value, const std::string& what) {
    parser_.add_flag(names, value, what);
}

void Arguments::Text(const std::string& names, std::string& value, const std::string& what) {
    parser_.add_option(names, value, what);
}

void Arguments::RequiredText(const std::string& names, std::string& value,
                             const std::string& what) {
    parser_.add_option(names, value, what)->required();
}

void Arguments::Number(const std::string& names, std::optional<std::uint64_t>& value,
                       const std::string& what) {
    const auto take = [&value](const std::string& text) { value = ParseNumber(text); };
    parser_.add_option_function<std::string>(names, take, what)->type_name("N");
}

Request ParseArguments(int argc, const char* const* argv, Settings& settings) {
    Parser parser(settings);
    try {
        return parser.Read(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return {nullptr, parser.Help()};
    } catch (const CLI::CallForVersion& version) {
        return {nullptr, version.what() + std::string("\n")};
    } catch (const CLI::ParseError& error) {
        throw Failure(error.what() + std::string("\nTry 'zsbtool --help' for more information."));
    }
}

}  // namespace zsbtool
