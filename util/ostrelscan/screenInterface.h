#pragma once

#include <cstdarg>
#include <optional>

#include "util/ostrelscan/terminalTurn.h"

struct screen;
struct _win_st;
using WINDOW = struct _win_st;

/// The terminal's size by standard input: 0, or -1 with both outputs untouched.
int GetTermSize(int* rows, int* columns);

/// Print into a window and show it from its top left corner.
void OutputToScreen(WINDOW* window, const char* format, ...) __attribute__((format(printf, 2, 3)));
void OutputToScreenWithPointer(WINDOW* window, const char* format, va_list arguments);

/// The curses screen: one large pad, shown from its top left corner after every write. While it
/// lives, the terminal is in curses' hands. Used by the operator thread alone; ncurses' results are
/// ignored, as there is nobody to tell.
class ScreenInterface {
  public:
    /// What `GetKey` says of a key.
    enum KeyKind {
        kKeyNone = -1,  ///< the wait was ended without a key
        kKeyCharacter = 0,
        kKeyFunction = 1,
        kKeyEnter = 2,
        kKeyEscape = 3,
        kKeyBackspace = 4,
        kKeyDelete = 5,
        kKeyInsert = 6,
        kKeyUp = 7,
        kKeyDown = 8,
        kKeyRight = 9,
        kKeyLeft = 10,
        kKeyHome = 11,
        kKeyEnd = 12,
        kKeyPageUp = 13,
        kKeyPageDown = 14,
    };

    /// Throws std::runtime_error when the terminal cannot be had.
    ScreenInterface();
    ~ScreenInterface();
    ScreenInterface(const ScreenInterface&) = delete;
    ScreenInterface& operator=(const ScreenInterface&) = delete;

    void libc_colors();
    void libc_color_set(int attribute);
    void libc_color_reset(int attribute);

    void ClearScreen();
    void ClearLine();
    void PositionOutputCursor(int row, int column);
    /// Both -1 when there is no pad.
    void GetOutputCursor(int& row, int& column) const;

    /// Prints at the cursor, which wraps and scrolls inside the pad, and shows the pad.
    void OutputToScreenWithAttribute(int attribute, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    /// Follows the terminal's size and paints everything anew.
    void Redraw();

    /// Calls `write`; what it writes shows at its end, all at once: a line end erases what stands
    /// to its right, and would send that anew each time.
    template <typename Write>
    void AtOnce(const Write& write) {
        {
            const Held held(held_);
            write();
        }
        Show();
    }

    /// Every wait for a key, now and from here on, ends once this descriptor can be read. It is
    /// borrowed and never read; -1 takes it back. Meanwhile the waits let go of `turn`, where the
    /// terminal is shared.
    void EndWaitsAt(int descriptor, TerminalTurn* turn = nullptr);
    /// The one place that waits for keys: true once standard input can be read, its end included,
    /// which this leaves to the caller; false when `EndWaitsAt` ended the wait. Meanwhile the
    /// screen follows the terminal's size.
    bool AwaitKey();

    /// Throws away the keys typed ahead; false when there are more of them than an operator types
    /// and some may be left.
    bool EatAllTypeAhead();
    /// Waits for a key. Outputs that are null are left out; `x` and `y` are always 0, `wait` is not
    /// used. Input that has ended counts as Escape; a wait that was ended gives `kKeyNone`.
    void GetKey(WINDOW* window, int* kind, int* character, int* x, int* y, unsigned long wait);
    int GetAKey();

    /// Asks until an answer key, Enter or Escape decides: 1 yes, 0 no, -1 cancelled. Bit 0 of
    /// `flags` makes yes the default; with any other bit Escape cancels instead of taking the
    /// default. A wait that was ended answers no, whatever the default.
    int PromptForYesOrNo2(WINDOW* window, unsigned long wait, unsigned long flags,
                          const char* format, ...) __attribute__((format(printf, 5, 6)));
    /// Asks with the keys typed ahead thrown away; whether the answer was not no. Input without
    /// end, before the question or behind the answer, is nobody's answer: false.
    bool PromptForYesOrNo(bool defaultYes, const char* prompt, bool clearAfter);

  private:
    struct Held {
        explicit Held(bool& flag) : held(flag) { held = true; }
        ~Held() { held = false; }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

        bool& held;
    };

    void Show();
    bool WaitsAreEnded() const;
    std::optional<int> ReadKey(WINDOW* window);

    struct screen* screen_;
    WINDOW* pad_ = nullptr;
    bool held_ = false;
    int endOfWaits_ = -1;
    TerminalTurn* turn_ = nullptr;
};
