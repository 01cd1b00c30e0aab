#include "util/ostrelscan/screenTerminal.h"

#include <ncurses.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <term.h>  // apart from the screen's code: its macros take everyday names
#include <unistd.h>

#include <cstddef>

namespace {

constexpr std::size_t kAnyTerminal = 4 << 20;
/// What stands on the terminal, what is to stand there, and the standard window; and one spare.
constexpr std::size_t kScreens = 4;

}  // namespace

bool TerminalFitsInMemory() {
    winsize size{};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    const std::size_t cells = std::size_t{size.ws_row} * size.ws_col;
    const std::size_t bytes = kAnyTerminal + kScreens * cells * sizeof(cchar_t);
    void* room = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return room != MAP_FAILED && munmap(room, bytes) == 0;
}

bool TerminalIsKnown() {
    int reason = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &reason) != OK) {
        return false;
    }
    del_curterm(set_curterm(nullptr));
    return true;
}
