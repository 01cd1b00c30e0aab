// The command line: arguments that end with "\0". What is accepted is a whole request.

#include "util/ostrelscan/commandLine.h"

#include <getopt.h>

#include <cstring>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"

namespace {

struct Parsed {
    std::optional<int> ended{};
    RunSettings settings{};
    std::vector<std::string> words;  // the settings borrow from them
};

void Parse(Parsed& parsed) {
    std::vector<char*> argv;
    for (std::string& word : parsed.words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    parsed.ended =
        ParseCommandLine(static_cast<int>(parsed.words.size()), argv.data(), parsed.settings);
}

bool Has(const std::vector<std::string>& words, const char* text) {
    return std::find(words.begin(), words.end(), text) != words.end();
}

void CheckAccepted(const Parsed& parsed) {
    const RunSettings& settings = parsed.settings;
    const bool restore = std::strcmp(settings.action, "restore") == 0;
    fuzz::Require(restore || std::strcmp(settings.action, "save") == 0, "one of two actions");
    fuzz::Require(!restore || settings.danger, "no restore without the danger known");
    fuzz::Require(settings.path.ends_with('/'), "the path is a folder's");
    fuzz::Require(settings.poolName != nullptr && settings.device != nullptr, "nothing is missing");
    for (const char* at = settings.poolName; *at != '\0'; ++at) {
        fuzz::Require(*at < 'a' || *at > 'z', "the pool's name is in upper case");
    }
    fuzz::Require(Has(parsed.words, settings.action) && Has(parsed.words, settings.device),
                  "what was asked for was given");
}

bool Same(const RunSettings& one, const RunSettings& other) {
    return one.path == other.path && one.automatic == other.automatic &&
           one.allBlocks == other.allBlocks && one.bypass == other.bypass &&
           one.compress == other.compress && one.danger == other.danger &&
           one.validate == other.validate;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    opterr = 0;
    fuzz::Input input(data, size);
    Parsed first{.words = {"ostrelscan"}};
    while (!input.Empty() && first.words.size() < 32) {
        first.words.push_back(input.Word('\0'));
    }
    Parsed second{.words = first.words};
    Parse(first);
    Parse(second);
    fuzz::Require(first.ended == second.ended && Same(first.settings, second.settings),
                  "the same words mean the same");
    fuzz::Require(!first.ended || *first.ended == 0 || *first.ended == 1, "an exit status");
    if (!first.ended) {
        CheckAccepted(first);
    }
    return 0;
}
