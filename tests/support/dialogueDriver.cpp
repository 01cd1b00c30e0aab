// Shows parts of the dialogue alone: `dialogueDriver STEP...`, each step a word and its arguments.

#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "util/common/scanFileList.h"
#include "util/ostrelscan/commandLine.h"
#include "util/ostrelscan/scanUI.h"

namespace {

/// The words of the command line, one after the other.
class DialogueDriver {
  public:
    explicit DialogueDriver(std::vector<std::string> words) : words_(std::move(words)) {}

    void Run() {
        const std::map<std::string, std::function<void()>> steps = {
            {"header", [this] { dialogue_.DisplayHeaderDump(Number(), "DATA", "./", false); }},
            {"progress", [this] { Progress(); }},
            {"file", [this] { File(); }},
            {"no-file", [this] { NoFile(); }},
            {"save", [this] { Save(); }},
            {"restore", [this] { Restore(); }},
            {"pause", [this] { dialogue_.LetUserView(); }},
        };
        while (next_ < words_.size()) {
            steps.at(words_.at(next_++))();
        }
    }

  private:
    unsigned long long Number() { return std::strtoull(words_.at(next_++).c_str(), nullptr, 10); }

    /// "progress TOTAL CURRENT DONE READ-ERRORS WRITE-ERRORS"
    void Progress() {
        const auto total = Number();
        const auto current = Number();
        const auto done = Number();
        const auto readErrors = Number();
        dialogue_.DisplayProgress(total, current, done, readErrors, Number(), false);
    }

    /// "file NAME STATUS CURRENT TOTAL MODE", where the last step ended
    void File() {
        const std::string name = words_.at(next_++);
        ScanFileFacts facts(name, static_cast<int>(Number()));
        facts.UpdateBlocksCurrent(static_cast<int>(Number()));
        facts.UpdateBlocksTotal(static_cast<int>(Number()));
        dialogue_.DisplaySFF(facts, static_cast<int>(Number()));
    }

    /// "no-file MODE"
    void NoFile() { dialogue_.DisplaySFF(SFF_Unreferenced, static_cast<int>(Number())); }

    /// "save PATH DEVICE": compressed, all blocks of an unchecked device, without the service.
    void Save() {
        const std::string path = words_.at(next_++);
        const std::string device = words_.at(next_++);
        dialogue_.RunDump(path.c_str(), device.c_str(), "DATA", true, true, true, false);
    }

    /// "restore PATH DEVICE": all blocks, the device unchecked, without the service.
    void Restore() {
        const std::string path = words_.at(next_++);
        const std::string device = words_.at(next_++);
        dialogue_.RunRestore(path.c_str(), device.c_str(), "DATA", true, true, false);
    }

    UserInterface dialogue_{false};
    std::vector<std::string> words_;
    std::size_t next_ = 0;
};

/// "run ACTION": hands a run of this action over, and tells its status.
int HandOver(const char* action) {
    RunSettings settings;
    settings.automatic = true;
    settings.action = action;
    settings.poolName = "DATA";
    settings.device = "none";
    const std::optional<unsigned> status = RunDialogue(settings);
    std::cout << "status " << status.value_or(0) << '\n';
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        if (words.size() == 2 && words[0] == "run") {
            return HandOver(words[1].c_str());
        }
        DialogueDriver(words).Run();
        return 0;
    } catch (const std::exception& failure) {
        std::cout << "failure: " << failure.what() << '\n';
        return 1;
    }
}
