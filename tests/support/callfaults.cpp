// Loaded before a program: one kind of call fails, "thread", "log" or "memory", as FAULT_CALL says.

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

bool Fails(const char* call) {
    const char* told = std::getenv("FAULT_CALL");
    return told != nullptr && std::strcmp(told, call) == 0;
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

/// Objects with a buffer of 16 KiB, zlib's, are refused to every thread but the first.
void* operator new(std::size_t size) {
    if (size >= 16384 && size < 32768 && gettid() != getpid() && Fails("memory")) {
        throw std::bad_alloc();
    }
    return Next<void*(std::size_t)>("_Znwm")(size);
}
