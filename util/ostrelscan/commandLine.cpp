#include "util/ostrelscan/commandLine.h"

#include <getopt.h>

#include <cstring>
#include <iostream>

#include "util/common/ascii.h"
#include "util/ostrelscan/programName.h"

const char* const SCAN_ShortOptions = "achP:v";

namespace {

/// What getopt returns for the long options that have no short form.
enum LongOption { kAutomatic = 256, kBypass, kDanger, kValidationSkip };

const option kLongOptions[] = {
    {"automatic", no_argument, nullptr, kAutomatic},
    {"all-blocks", no_argument, nullptr, 'a'},
    {"bypass-ostrel", no_argument, nullptr, kBypass},
    {"compress", no_argument, nullptr, 'c'},
    {"danger", no_argument, nullptr, kDanger},
    {"help", no_argument, nullptr, 'h'},
    {"path", required_argument, nullptr, 'P'},
    {"validation-skip", no_argument, nullptr, kValidationSkip},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

int RefuseWithHint() {
    std::cerr << "Try '" << kProgramName << " --help' for more information.\n";
    return 1;
}

int Refuse(const std::string& complaint) {
    std::cerr << kProgramName << ": " << complaint << '\n';
    return RefuseWithHint();
}

int RefuseAction(const char* action, const char* complaint) {
    std::cout << "ACTION " << action << complaint << std::endl;
    return RefuseWithHint();
}

int PrintVersion() {
    std::cout << kProgramName << " (OSTREL) " << kProgramVersion
              << "\nCopies a pool's internal blocks for support, and writes them back.\n";
    return 0;
}

std::string Directory(std::string path) {
    if (!path.ends_with('/')) {
        path += '/';
    }
    return path;
}

/// Acts on one option; returns an exit status where it ends the program.
std::optional<int> ApplyOption(int option, RunSettings& settings) {
    switch (option) {
        case 0:
            return {};
        case kAutomatic:
            settings.automatic = true;
            return {};
        case 'a':
            settings.allBlocks = true;
            return {};
        case kBypass:
            settings.bypass = true;
            return {};
        case 'c':
            settings.compress = true;
            return {};
        case kDanger:
            settings.danger = true;
            return {};
        case 'h':
            SCAN_Usage(settings.path.c_str());
            return 0;
        case 'P':
            settings.path = Directory(optarg);
            return {};
        case kValidationSkip:
            settings.validate = false;
            return {};
        case 'v':
            return PrintVersion();
        case ':':
        case '?':  // getopt has complained already
            return RefuseWithHint();
        default:
            return Refuse(std::string("option '-") + static_cast<char>(optopt) + "' is invalid.");
    }
}

void UpperCase(char* text) {
    for (; *text != '\0'; ++text) {
        *text = Ascii::ToUpper(*text);
    }
}

std::optional<int> CheckAction(const char* action, bool danger) {
    const bool restore = std::strcmp(action, "restore") == 0;
    if (!restore && std::strcmp(action, "save") != 0) {
        return RefuseAction(action, " is not legal.");
    }
    if (restore && !danger) {
        return RefuseAction(action, " is legal, but you have not read usage well enough.");
    }
    return {};
}

/// `arguments` are what stands behind the options; a null pointer ends them.
std::optional<int> TakePositionals(char** arguments, RunSettings& settings) {
    if (arguments[0] == nullptr) {
        return Refuse("missing ACTION argument.");
    }
    settings.action = arguments[0];
    if (const std::optional<int> refused = CheckAction(settings.action, settings.danger)) {
        return refused;
    }
    if (arguments[1] == nullptr) {
        return Refuse("missing POOLNAME argument.");
    }
    UpperCase(arguments[1]);
    settings.poolName = arguments[1];
    if (arguments[2] == nullptr) {
        return Refuse("missing DEVICE argument.");
    }
    settings.device = arguments[2];
    if (arguments[3] != nullptr) {
        return Refuse(std::string("unexpected argument - ") + arguments[3] + ".");
    }
    return {};
}

}  // namespace

std::optional<int> ParseCommandLine(int argc, char** argv, RunSettings& settings) {
    // Options may stand behind the arguments, whatever the environment says of that.
    unsetenv("POSIXLY_CORRECT");
    optind = 0;  // begin anew, whatever was parsed before
    int option = 0;
    while ((option = getopt_long(argc, argv, SCAN_ShortOptions, kLongOptions, nullptr)) != -1) {
        if (const std::optional<int> ended = ApplyOption(option, settings)) {
            return ended;
        }
    }
    return TakePositionals(argv + optind, settings);
}
