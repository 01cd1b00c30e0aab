#pragma once

#include <cstdint>

namespace Ostrel {

/// Seconds since the Unix epoch.
std::int64_t GetUTCTime();

/// Sleeps for so many milliseconds; returns usleep's result.
int LB_delay(std::int64_t milliseconds);

}  // namespace Ostrel

/// Logs the local time and the seconds since the epoch as one `<CurrentTime>` element; with
/// `alsoToScreen` the local time goes to standard output too.
void LogCurrentTime(bool alsoToScreen);

/// Logs the local time as a plain line.
void DisplayTime();
