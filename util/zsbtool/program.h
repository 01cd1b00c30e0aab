#pragma once

namespace zsbtool {

/// Runs `zsbtool` with the process's arguments; returns its exit status. The diagnostics that the
/// shared code writes to std::cerr are dropped: a command says in its own words what is wrong.
int RunProgram(int argc, const char* const* argv);

}  // namespace zsbtool
