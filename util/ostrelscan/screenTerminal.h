#pragma once

/// Whether the type of terminal that the TERM variable names is known.
bool TerminalIsKnown();

/// Whether there is the memory that a screen on this terminal needs. Curses crashes, or ends the
/// process, where it finds none while it begins.
bool TerminalFitsInMemory();
