// Drives the screen layer alone: `screenDriver STEP...`, each step a word and its arguments. What
// the steps found out is printed when the screen is gone.

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#define NCURSES_NOMACROS
#include <ncurses.h>

#include "util/ostrelscan/screenInterface.h"

namespace {

/// The words of the command line, and what was found out.
class Driver {
  public:
    explicit Driver(std::vector<std::string> words) : words_(std::move(words)) {}

    void Run() {
        pad_ = newpad(100, 320);
        keypad(pad_, TRUE);
        while (next_ < words_.size()) {
            Step(Word());
        }
        delwin(pad_);
    }

    std::string Report() const { return report_.str(); }

  private:
    const std::string& Word() { return words_.at(next_++); }
    int Number() { return std::atoi(Word().c_str()); }

    void Step(const std::string& word) {
        const std::map<std::string, std::function<void()>> steps = {
            {"at", [this] { At(); }},
            {"text", [this] { Text(); }},
            {"clear-screen", [this] { screen_.ClearScreen(); }},
            {"clear-line", [this] { screen_.ClearLine(); }},
            {"redraw", [this] { screen_.Redraw(); }},
            {"sleep", [this] { usleep(static_cast<useconds_t>(Number()) * 1000); }},
            {"cursor", [this] { Cursor(); }},
            {"size", [this] { Size(); }},
            {"key", [this] { Key(); }},
            {"a-key", [this] { report_ << "key " << screen_.GetAKey() << '\n'; }},
            {"ends-at", [this] { screen_.EndWaitsAt(Number()); }},
            {"wait", [this] { report_ << "waited " << screen_.AwaitKey() << '\n'; }},
            {"eat", [this] { report_ << "dry " << screen_.EatAllTypeAhead() << '\n'; }},
            {"ask", [this] { Ask(); }},
            {"ask2", [this] { Ask2(); }},
            {"no-window", [this] { NoWindow(); }},
        };
        steps.at(word)();
    }

    void At() {
        const int row = Number();
        screen_.PositionOutputCursor(row, Number());
    }

    void Text() {
        const int attribute = Number();
        screen_.OutputToScreenWithAttribute(attribute, "%s", Word().c_str());
    }

    void Cursor() {
        int row = 0;
        int column = 0;
        screen_.GetOutputCursor(row, column);
        report_ << "cursor " << row << ' ' << column << '\n';
    }

    void Size() {
        int rows = -7;
        int columns = -7;
        const int result = GetTermSize(&rows, &columns);
        report_ << "size " << result << ' ' << rows << ' ' << columns << '\n';
    }

    void Key() {
        int kind = -7;
        int character = -7;
        int x = -7;
        int y = -7;
        screen_.GetKey(pad_, &kind, &character, &x, &y, 5);
        report_ << "key " << kind << ' ' << character << ' ' << x << ' ' << y << '\n';
        OutputToScreen(pad_, "got %d/%d ", kind, character);
    }

    /// "ask yes|no keep|clear QUESTION"
    void Ask() {
        const bool defaultYes = Word() == "yes";
        const bool clearAfter = Word() == "clear";
        const bool answer = screen_.PromptForYesOrNo(defaultYes, Word().c_str(), clearAfter);
        report_ << "answer " << answer << '\n';
    }

    /// "ask2 FLAGS QUESTION"
    void Ask2() {
        const auto flags = static_cast<unsigned long>(Number());
        const int answer = screen_.PromptForYesOrNo2(pad_, 1, flags, "%s", Word().c_str());
        report_ << "answer " << answer << '\n';
    }

    void NoWindow() {
        int kind = -7;
        screen_.GetKey(nullptr, &kind, nullptr, nullptr, nullptr, 0);
        report_ << "no window " << screen_.PromptForYesOrNo2(nullptr, 1, 1, "%s", "?") << ' '
                << kind << '\n';
    }

    ScreenInterface screen_;
    std::vector<std::string> words_;
    std::size_t next_ = 0;
    WINDOW* pad_ = nullptr;
    std::ostringstream report_;
};

std::string DriveScreen(int argc, char** argv) {
    Driver driver(std::vector<std::string>(argv + 1, argv + argc));
    driver.Run();
    return driver.Report();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        std::cout << DriveScreen(argc, argv) << "end\n";
        return 0;
    } catch (const std::exception& failure) {
        std::cout << "failure: " << failure.what() << '\n';
        return 1;
    }
}
