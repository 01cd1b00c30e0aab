#include "util/ostrelscan/screenTerminal.h"

#include <ncurses.h>
#include <term.h>  // apart from the screen's code: its macros take everyday names
#include <unistd.h>

bool TerminalIsKnown() {
    int reason = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &reason) != OK) {
        return false;
    }
    del_curterm(set_curterm(nullptr));
    return true;
}
