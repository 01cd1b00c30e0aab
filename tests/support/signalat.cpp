// Loaded before a program: sends the process a signal, SIGNAL_NUMBER, at the call that SIGNAL_CALL
// names: "time", the first look at the clock; "newterm", before curses begins the screen; "endwin",
// when it has ended it; "fsync", before something is synced, which then waits for the end;
// "stream", where threads but the first have written, moved or closed streams or compressed for one
// SIGNAL_AFTER times. With SIGNAL_TWICE it is sent once more when the program has taken the first.

#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
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
        if (std::getenv("SIGNAL_TWICE") != nullptr) {
            kill(getpid(), std::atoi(number));
            pause();  // the process ends meanwhile
        }
    }
}

void SignalAtStreamCall() {
    static std::atomic<int> calls{0};
    const char* after = std::getenv("SIGNAL_AFTER");
    if (after != nullptr && gettid() != getpid() && calls.fetch_add(1) == std::atoi(after)) {
        SignalAt("stream");
    }
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

std::time_t time(std::time_t* out) {
    static std::atomic<bool> first{true};
    if (first.exchange(false)) {
        SignalAt("time");
    }
    return Next<std::time_t(std::time_t*)>("time")(out);
}

std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* stream) {
    SignalAtStreamCall();
    return Next<decltype(fwrite)>("fwrite")(bytes, size, count, stream);
}

int fseeko64(std::FILE* stream, off64_t offset, int whence) {
    SignalAtStreamCall();
    return Next<decltype(fseeko64)>("fseeko64")(stream, offset, whence);
}

/// Compressed records reach their stream together.
int deflate(void* records, int flush) {
    SignalAtStreamCall();
    return Next<int(void*, int)>("deflate")(records, flush);
}

int fclose(std::FILE* stream) {
    SignalAtStreamCall();
    return Next<decltype(fclose)>("fclose")(stream);
}

void* newterm(const char* type, std::FILE* output, std::FILE* input) {
    SignalAt("newterm");
    return Next<void*(const char*, std::FILE*, std::FILE*)>("newterm")(type, output, input);
}

int endwin() {
    const int result = Next<int()>("endwin")();
    SignalAt("endwin");
    return result;
}

int fsync(int file) {
    SignalAt("fsync");
    return Next<int(int)>("fsync")(file);
}

}  // extern "C"
