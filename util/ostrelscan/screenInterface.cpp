#include "util/ostrelscan/screenInterface.h"

#define NCURSES_NOMACROS
#include <ncurses.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "util/ostrelscan/screenLayout.h"
#include "util/ostrelscan/screenTerminal.h"
#include "util/ostrelscan/screenText.h"

namespace {

constexpr int kPadRows = 100;
constexpr int kPadColumns = 320;
constexpr int kEscape = 27;
constexpr std::size_t kOrdinaryText = 1024;

/// What a terminal's queue holds. Input that has more to say comes from a program, which answers
/// questions that it has not read.
constexpr int kTypeAheadLimit = 4096;

/// The characters that answer a question: yes, no, YES, NO.
constexpr char kAnswerKeys[] = "ynYN";

struct Look {
    int pair;      ///< colour pair, switched by a call of its own; 0 for none
    attr_t extra;  ///< switched after it
};

/// All pairs are white on blue, so that the numbers differ in boldness alone, but for 0, which is
/// invisible; the dialogues name what they mean by them all the same.
Look LookOf(int attribute) {
    switch (attribute) {
        case 0:
            return {0, A_INVIS};
        case 1:
            return {4, A_BOLD};
        case 2:
            return {2, A_NORMAL};
        case 4:
        case 12:
            return {1, A_NORMAL};
        case 5:
            return {5, A_BOLD};
        case 6:
            return {3, A_NORMAL};
        case 7:
            return {0, A_NORMAL};
        case 10:
            return {2, A_BOLD};
        case 13:
            return {5, A_NORMAL};
        case 14:
            return {3, A_BOLD};
        default:
            return {4, A_NORMAL};
    }
}

template <typename Switch>
void SwitchAttributes(WINDOW* window, int attribute, Switch* change) {
    if (!has_colors()) {
        return;
    }
    const Look look = LookOf(attribute);
    for (const attr_t part : {static_cast<attr_t>(COLOR_PAIR(look.pair)), look.extra}) {
        if (part != A_NORMAL) {
            change(window, part, nullptr);
        }
    }
}

bool IsAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// ASCII goes as it is, its controls too; of all else each character goes by itself.
void Write(WINDOW* window, std::string_view text) {
    while (!text.empty()) {
        const auto plain =
            static_cast<std::size_t>(std::ranges::find_if_not(text, IsAscii) - text.begin());
        if (plain > 0) {
            waddnstr(window, text.data(), static_cast<int>(plain));
            text.remove_prefix(plain);
            continue;
        }
        const ScreenCharacter character = FirstScreenCharacter(text);
        waddnwstr(window, &character.shown, 1);
        text.remove_prefix(character.bytes);
    }
}

/// Formats here what ncurses would: its own formatting reads the arguments twice, and crashes,
/// where a text is longer than the terminal has cells. A repaint allocates nothing: only a text
/// longer than any line of the dialogues does.
void Print(WINDOW* window, const char* format, va_list arguments) {
    char ordinary[kOrdinaryText];
    va_list again;
    va_copy(again, arguments);
    const int printed = std::vsnprintf(ordinary, sizeof ordinary, format, arguments);
    const auto length = static_cast<std::size_t>(std::max(printed, 0));
    if (length < sizeof ordinary) {
        Write(window, {ordinary, length});
    } else {
        std::string longer(length, '\0');
        std::vsnprintf(longer.data(), length + 1, format, again);
        Write(window, longer);
    }
    va_end(again);
}

struct Size {
    int rows = 0;  ///< 0 where the terminal has none
    int columns = 0;
};

Size TerminalSize() {
    Size size;
    GetTermSize(&size.rows, &size.columns);
    return size;
}

/// Whether the terminal's size is another than the one that curses draws for.
bool IsResized(const Size& size) {
    return is_term_resized(size.rows, size.columns);
}

/// Draws for this size from here on. Curses leaves a key to be read behind a size that it takes,
/// and none behind one that it refuses: a read would take somebody's input then.
void TakeSize(WINDOW* window, const Size& size) {
    if (resizeterm(size.rows, size.columns) == OK) {
        wgetch(window);
    }
}

/// Asking for the size at every write follows a resized terminal without a signal handler. Without
/// a size only the top left cell is shown. Curses shows nothing at all to a corner that it believes
/// to be off the terminal.
void ShowPad(WINDOW* pad) {
    const Size size = TerminalSize();
    if (IsResized(size)) {
        TakeSize(pad, size);
    }
    prefresh(pad, 0, 0, 0, 0, std::max(std::min(size.rows, LINES) - 1, 0),
             std::max(std::min(size.columns, COLS) - 1, 0));
}

/// newterm is initscr without its habit of ending the process where there is no terminal. It is not
/// asked for an unknown one, since it would keep what it made before it failed. The locale is the
/// operator's for characters alone: numbers, times and messages stay as they are.
SCREEN* OpenTerminal() {
    std::setlocale(LC_CTYPE, "");
    return TerminalFitsInMemory() && TerminalIsKnown() ? newterm(nullptr, stdout, stdin) : nullptr;
}

/// Waits for one of these, without holding the terminal meanwhile.
int Poll(std::span<pollfd> watched, TerminalTurn* turn) {
    const TerminalLetGo meanwhile(turn);
    return poll(watched.data(), watched.size(), kPollMilliseconds);
}

int KindOf(int key) {
    if (key >= KEY_F(0) && key <= KEY_F(63)) {
        return ScreenInterface::kKeyFunction;
    }
    switch (key) {
        case KEY_ENTER:
        case '\n':
        case '\r':
            return ScreenInterface::kKeyEnter;
        case kEscape:
        case ERR:  // nobody can answer any more
            return ScreenInterface::kKeyEscape;
        case KEY_BACKSPACE:
            return ScreenInterface::kKeyBackspace;
        case KEY_DC:
            return ScreenInterface::kKeyDelete;
        case KEY_IC:
            return ScreenInterface::kKeyInsert;
        case KEY_UP:
            return ScreenInterface::kKeyUp;
        case KEY_DOWN:
            return ScreenInterface::kKeyDown;
        case KEY_RIGHT:
            return ScreenInterface::kKeyRight;
        case KEY_LEFT:
            return ScreenInterface::kKeyLeft;
        case KEY_HOME:
            return ScreenInterface::kKeyHome;
        case KEY_END:
            return ScreenInterface::kKeyEnd;
        case KEY_PPAGE:
            return ScreenInterface::kKeyPageUp;
        case KEY_NPAGE:
            return ScreenInterface::kKeyPageDown;
        default:
            return ScreenInterface::kKeyCharacter;
    }
}

void Store(int* out, int value) {
    if (out != nullptr) {
        *out = value;
    }
}

enum class Answer { None, Yes, No, Default, Cancel };

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): as `GetKey` tells them
Answer AnswerOf(int kind, int character) {
    if (kind == ScreenInterface::kKeyNone) {
        return Answer::No;
    }
    if (kind == ScreenInterface::kKeyEnter) {
        return Answer::Default;
    }
    if (kind == ScreenInterface::kKeyEscape) {
        return Answer::Cancel;
    }
    if (kind != ScreenInterface::kKeyCharacter) {
        return Answer::None;
    }
    if (character == kAnswerKeys[0] || character == kAnswerKeys[2]) {
        return Answer::Yes;
    }
    return character == kAnswerKeys[1] || character == kAnswerKeys[3] ? Answer::No : Answer::None;
}

/// The default's key stands under the cursor.
void ShowDefault(WINDOW* window, bool yes) {
    const int row = getcury(window);
    const int column = getcurx(window);
    OutputToScreen(window, "%c", yes ? kAnswerKeys[0] : kAnswerKeys[1]);
    wmove(window, row, column);
    ShowPad(window);
}

/// A program that was late to fill its pipe shows behind the key that answered.
bool InputIsFlooded() {
    int waiting = 0;
    return ioctl(STDIN_FILENO, FIONREAD, &waiting) == 0 && waiting >= kTypeAheadLimit;
}

void ShowAnswer(WINDOW* window, bool yes) {
    OutputToScreen(window, "%c\r\n", yes ? kAnswerKeys[0] : kAnswerKeys[1]);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int GetTermSize(int* rows, int* columns) {
    winsize size{};
    if (ioctl(STDIN_FILENO, TIOCGWINSZ, &size) != 0) {
        return -1;
    }
    *rows = size.ws_row;
    *columns = size.ws_col;
    return 0;
}

void OutputToScreen(WINDOW* window, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    OutputToScreenWithPointer(window, format, arguments);
    va_end(arguments);
}

void OutputToScreenWithPointer(WINDOW* window, const char* format, va_list arguments) {
    Print(window, format, arguments);
    ShowPad(window);
}

ScreenInterface::ScreenInterface() : screen_(OpenTerminal()) {
    if (screen_ == nullptr) {
        throw std::runtime_error("The terminal is unknown");
    }
    def_prog_mode();
    pad_ = newpad(kPadRows, kPadColumns);
    if (pad_ == nullptr) {
        endwin();  // and no more: what curses made with too little memory, it cannot free either
        throw std::runtime_error("The screen found no memory");
    }
    libc_colors();
    curs_set(0);
    noecho();
    cbreak();
    keypad(pad_, TRUE);
    Redraw();
}

ScreenInterface::~ScreenInterface() {
    endwin();
    delwin(pad_);
    delscreen(screen_);
}

void ScreenInterface::libc_colors() {
    if (!has_colors()) {
        return;
    }
    start_color();
    for (const short pair : std::initializer_list<short>{0, 2, 1, 6, 7, 5, 4, 3}) {
        init_pair(pair, COLOR_WHITE, COLOR_BLUE);
    }
}

void ScreenInterface::libc_color_set(int attribute) {
    SwitchAttributes(pad_, attribute, wattr_on);
}

void ScreenInterface::libc_color_reset(int attribute) {
    SwitchAttributes(pad_, attribute, wattr_off);
}

void ScreenInterface::ClearScreen() {
    werase(pad_);
}

void ScreenInterface::ClearLine() {
    wmove(pad_, getcury(pad_), 0);
    wclrtoeol(pad_);
}

void ScreenInterface::PositionOutputCursor(int row, int column) {
    wmove(pad_, row, column);
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
void ScreenInterface::GetOutputCursor(int& row, int& column) const {
    row = getcury(pad_);
    column = getcurx(pad_);
}

void ScreenInterface::OutputToScreenWithAttribute(int attribute, const char* format, ...) {
    libc_color_set(attribute);
    va_list arguments;
    va_start(arguments, format);
    Print(pad_, format, arguments);
    va_end(arguments);
    libc_color_reset(attribute);
    Show();
}

void ScreenInterface::Show() {
    if (!held_) {
        ShowPad(pad_);
    }
}

void ScreenInterface::Redraw() {
    TakeSize(pad_, TerminalSize());
    clear();
    wtouchln(pad_, 0, getmaxy(pad_), 1);
    wbkgd(pad_, static_cast<chtype>(COLOR_PAIR(4)));
    Show();
}

void ScreenInterface::EndWaitsAt(int descriptor, TerminalTurn* turn) {
    endOfWaits_ = descriptor;
    turn_ = turn;
}

bool ScreenInterface::WaitsAreEnded() const {
    pollfd end{endOfWaits_, POLLIN, 0};
    return poll(&end, 1, 0) > 0;
}

// The size is asked for, now and then: its signal may come before the wait, or to another thread.
bool ScreenInterface::AwaitKey() {
    pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {endOfWaits_, POLLIN, 0}};
    for (;;) {
        const int ready = Poll(watched, turn_);
        if (ready > 0) {
            return watched[1].revents == 0;
        }
        if (ready < 0 && errno != EINTR) {
            return true;  // the read itself waits, then
        }
        if (IsResized(TerminalSize())) {
            Redraw();
        }
    }
}

bool ScreenInterface::EatAllTypeAhead() {
    int eaten = 0;
    nodelay(pad_, TRUE);
    while (eaten < kTypeAheadLimit && wgetch(pad_) != ERR) {
        ++eaten;
    }
    nodelay(pad_, FALSE);
    return eaten < kTypeAheadLimit;
}

/// The next key, which curses may hold already; nothing when the wait for it was ended.
std::optional<int> ScreenInterface::ReadKey(WINDOW* window) {
    while (!WaitsAreEnded()) {
        nodelay(window, TRUE);
        int key = wgetch(window);
        nodelay(window, FALSE);
        if (key == ERR) {
            if (!AwaitKey()) {
                break;
            }
            key = wgetch(window);
        }
        if (key != KEY_RESIZE) {
            return key;
        }
        Redraw();
    }
    return {};
}

void ScreenInterface::GetKey(WINDOW* window, int* kind, int* character, int* x, int* y,
                             unsigned long /*wait*/) {
    if (window == nullptr) {
        return;
    }
    const std::optional<int> key = ReadKey(window);
    Store(x, 0);
    Store(y, 0);
    Store(kind, key ? KindOf(*key) : kKeyNone);
    Store(character, key.value_or(0) & 0xFF);
}

int ScreenInterface::GetAKey() {
    int character = 0;
    GetKey(pad_, nullptr, &character, nullptr, nullptr, 0);
    return character;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int ScreenInterface::PromptForYesOrNo2(WINDOW* window, unsigned long wait, unsigned long flags,
                                       const char* format, ...) {
    if (window == nullptr) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    OutputToScreenWithPointer(window, format, arguments);
    va_end(arguments);
    const bool defaultYes = (flags & 1) != 0;
    ShowDefault(window, defaultYes);
    Answer answer = Answer::None;
    for (;;) {
        int kind = kKeyCharacter;
        int character = 0;
        GetKey(window, &kind, &character, nullptr, nullptr, wait);
        answer = AnswerOf(kind, character);
        if (answer != Answer::None) {
            break;
        }
        beep();
    }
    if (answer == Answer::Cancel && (flags & ~1UL) != 0) {
        ShowAnswer(window, true);
        return -1;
    }
    const bool yes = answer == Answer::Yes || (answer != Answer::No && defaultYes);
    ShowAnswer(window, yes);
    return yes ? 1 : 0;
}

bool ScreenInterface::PromptForYesOrNo(bool defaultYes, const char* prompt, bool clearAfter) {
    if (!EatAllTypeAhead()) {
        return false;
    }
    const int answer = PromptForYesOrNo2(pad_, 1, defaultYes ? 1 : 0, "%s", prompt);
    if (clearAfter) {
        ClearLine();
    }
    return answer != 0 && !InputIsFlooded();
}
