// Loaded before a program: its clock runs backwards. Each look at it shows CLOCK_STEP seconds less
// than the one before; the first shows CLOCK_START, or what time it is.

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <ctime>

extern "C" std::time_t time(std::time_t* out) {
    static std::atomic<std::time_t> looks{0};
    using Time = std::time_t(std::time_t*);
    const char* step = std::getenv("CLOCK_STEP");
    const std::time_t back = step != nullptr ? std::atol(step) : 0;
    const char* start = std::getenv("CLOCK_START");
    const std::time_t first = start != nullptr
                                  ? std::atol(start)
                                  : reinterpret_cast<Time*>(dlsym(RTLD_NEXT, "time"))(nullptr);
    const std::time_t now = first - back * looks.fetch_add(1);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}
