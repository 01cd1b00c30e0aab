// Loaded before a program: makes the steps that close one file fail, each as told, once it is done.
// FAULT_PATH names the file, FAULT_CALLS the steps with their errors, as in "fflush=28,fclose=5".

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

/// The error that a step on this descriptor ends with; 0 for none.
int FaultOf(const char* step, int descriptor) {
    const char* path = std::getenv("FAULT_PATH");
    const char* calls = std::getenv("FAULT_CALLS");
    char opened[PATH_MAX] = "";
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (path == nullptr || calls == nullptr ||
        readlink(link.c_str(), opened, sizeof opened - 1) < 0 || std::strcmp(opened, path) != 0) {
        return 0;
    }
    const std::string wanted = std::string(step) + "=";
    const char* found = std::strstr(calls, wanted.c_str());
    return found != nullptr ? std::atoi(found + wanted.size()) : 0;
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int Result(int result, int fault) {
    if (fault == 0) {
        return result;
    }
    errno = fault;
    return -1;
}

}  // namespace

extern "C" {

int fflush(std::FILE* stream) {
    const int fault = stream != nullptr ? FaultOf("fflush", fileno(stream)) : 0;
    return Result(Next<int(std::FILE*)>("fflush")(stream), fault);
}

int fclose(std::FILE* stream) {
    const int fault = FaultOf("fclose", fileno(stream));
    return Result(Next<int(std::FILE*)>("fclose")(stream), fault);
}

int fsync(int descriptor) {
    const int fault = FaultOf("fsync", descriptor);
    return Result(Next<int(int)>("fsync")(descriptor), fault);
}

}  // extern "C"
