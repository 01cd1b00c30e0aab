// Loaded before a program: once it has tried its log, it gets so many objects more as MEMORY_LEFT
// says, and then none. With MEMORY_OF_OPERATOR, only those of the first thread count and are
// refused; with MEMORY_ONCE, one is refused and then none. The C libraries get theirs: not all of
// them bear it.

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<long> objects{-1};  // no limit yet
bool ofOperator = false;
bool once = false;
bool forScreen = false;

/// Whether one more object is refused.
bool Refused() {
    if (ofOperator && gettid() != getpid()) {
        return false;
    }
    long now = objects.load();
    while (now >= (once ? 0 : 1) && !objects.compare_exchange_weak(now, now - 1)) {
    }
    return now == 0;
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void* operator new(std::size_t size) {
    if (!forScreen && Refused()) {
        throw std::bad_alloc();
    }
    return Next<void*(std::size_t)>("_Znwm")(size);
}

extern "C" int prefresh(void* pad, int row, int column, int top, int left, int bottom, int right) {
    if (forScreen && Refused()) {
        throw std::bad_alloc();
    }
    return Next<int(void*, int, int, int, int, int, int)>("prefresh")(pad, row, column, top, left,
                                                                      bottom, right);
}

/// What the log is tried with before it is opened.
extern "C" std::FILE* fopen(const char* path, const char* mode) {
    std::FILE* file = Next<std::FILE*(const char*, const char*)>("fopen")(path, mode);
    const char* told = std::getenv("MEMORY_LEFT");
    if (told != nullptr && std::strcmp(path, "ostrelscan.log") == 0) {
        ofOperator = std::getenv("MEMORY_OF_OPERATOR") != nullptr;
        forScreen = std::getenv("MEMORY_FOR_SCREEN") != nullptr;
        once = std::getenv("MEMORY_ONCE") != nullptr;
        objects = std::atol(told);
    }
    return file;
}
