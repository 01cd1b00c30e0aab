// Loaded before a program: a step of a run's start fails, "thread" or "log", as FAULT_STEP says.

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool Fails(const char* step) {
    const char* told = std::getenv("FAULT_STEP");
    return told != nullptr && std::strcmp(told, step) == 0;
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
    if (Fails("thread")) {
        return EAGAIN;
    }
    return Next<decltype(pthread_create)>("pthread_create")(thread, attributes, routine, argument);
}

/// What the stream library opens files with; the probe before it goes by fopen.
std::FILE* fopen64(const char* path, const char* mode) {
    if (Fails("log") && std::strcmp(path, "ostrelscan.log") == 0) {
        errno = EMFILE;
        return nullptr;
    }
    return Next<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
}

}  // extern "C"
