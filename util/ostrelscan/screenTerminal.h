#pragma once

/// Whether the type of terminal that the TERM variable names is known.
bool TerminalIsKnown();
