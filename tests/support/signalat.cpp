// Loaded before a program: sends the process a signal, SIGNAL_NUMBER, where curses begins or ends
// the screen, as SIGNAL_CALL says: "newterm", before it does, or "endwin", when it has.

#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

/// Waits until the program says by an event descriptor that it has taken the signal.
void AwaitTaken() {
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
        char target[64] = "";
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(link.c_str(), target, sizeof target - 1) > 0 &&
            std::strcmp(target, "anon_inode:[eventfd]") == 0) {
            pollfd event{descriptor, POLLIN, 0};
            poll(&event, 1, -1);
        }
    }
}

void SignalAt(const char* call) {
    const char* told = std::getenv("SIGNAL_CALL");
    const char* number = std::getenv("SIGNAL_NUMBER");
    if (told != nullptr && number != nullptr && std::strcmp(told, call) == 0) {
        kill(getpid(), std::atoi(number));
        AwaitTaken();
    }
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void* newterm(const char* type, std::FILE* output, std::FILE* input) {
    SignalAt("newterm");
    return Next<void*(const char*, std::FILE*, std::FILE*)>("newterm")(type, output, input);
}

int endwin() {
    const int result = Next<int()>("endwin")();
    SignalAt("endwin");
    return result;
}

}  // extern "C"
