#pragma once

// Where things stand on the screen.
inline constexpr int kProgressRow = 1;
inline constexpr int kErrorCountRow = 3;
inline constexpr int kSecondErrorColumn = 40;
inline constexpr int kTableRow = 5;
inline constexpr int kTableColumnWidth = 26;
inline constexpr int kTableColumns = 3;
inline constexpr int kErrorRow = 19;
inline constexpr int kFirstFileRow = 19;
inline constexpr int kLastFileRow = 22;
inline constexpr int kConsentRow = 18;
inline constexpr int kParkedRow = 23;
inline constexpr int kPauseRow = 24;

// How they look: numbers of the screen's attributes.
inline constexpr int kLookProgress = 2;
inline constexpr int kLookBad = 4;
inline constexpr int kLookSelected = 11;
inline constexpr int kLookFatal = 12;
inline constexpr int kLookHeader = 13;
inline constexpr int kLookWarning = 14;

// What the list of scan files shows.
inline constexpr int kModeDump = 0;
inline constexpr int kModeRestore = 1;

/// How often the screen follows the engine, and the terminal's size while it waits for a key.
inline constexpr int kPollMilliseconds = 100;
