#pragma once

/// How the program names itself, whatever it was called by.
inline constexpr const char* kProgramName = "ostrelscan";
inline constexpr const char* kProgramVersion = OSTREL_VERSION;
