#include "util/common/clock.h"

#include <unistd.h>

#include <ctime>
#include <iostream>
#include <string>

#include "util/common/log.h"

namespace {

/// The text stands in double quotes of its own.
std::string LocalTimeText(std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    char text[80] = "";
    const std::size_t length =
        std::strftime(text, sizeof text, "\"%b %d, %Y  %I:%M:%S %p  %z\"", &local);
    return {text, length};
}

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
    const std::string text = LocalTimeText(now);
    LogLine() << "<CurrentTime time=" << text << " timeValue=\"" << std::to_string(now)
              << "\" />\n";
    if (alsoToScreen) {
        std::cout << "  Current time   " << text << std::endl;
    }
}

void DisplayTime() {
    LogLine() << "Current time   " << LocalTimeText(std::time(nullptr)) << '\n';
}
