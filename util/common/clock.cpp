#include "util/common/clock.h"

#include <unistd.h>

#include <ctime>
#include <iostream>
#include <string>

#include "util/common/log.h"

namespace {

/// A local time as text, which stands in double quotes of its own. It needs no memory, since the
/// log of a run that has none left ends with it.
struct LocalTimeText {
    explicit LocalTimeText(std::time_t time) {
        std::tm local{};
        localtime_r(&time, &local);
        std::strftime(text, sizeof text, "\"%b %d, %Y  %I:%M:%S %p  %z\"", &local);
    }

    char text[80] = "";
};

}  // namespace

namespace Ostrel {

std::int64_t GetUTCTime() {
    return std::time(nullptr);
}

int LB_delay(std::int64_t milliseconds) {
    return usleep(static_cast<useconds_t>(milliseconds * 1000));
}

}  // namespace Ostrel

void LogCurrentTime(bool alsoToScreen) {
    const std::time_t now = std::time(nullptr);
    const LocalTimeText local(now);
    LogLine() << "<CurrentTime time=" << local.text << " timeValue=\"" << std::to_string(now)
              << "\" />\n";
    if (alsoToScreen) {
        std::cout << "  Current time   " << local.text << std::endl;
    }
}

void DisplayTime() {
    LogLine() << "Current time   " << LocalTimeText(std::time(nullptr)).text << '\n';
}
