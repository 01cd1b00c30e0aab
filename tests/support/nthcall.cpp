// Loaded before a program: the NTH_AT-th call of the functions NTH_CALL, named as in
// "fread,pread64", fails with the error NTH_ERROR (zlib's functions return it), and with it as many
// calls as NTH_TIMES says, all of them for 0. The file NTH_STRUCK is made then, so that whoever
// counts upward knows where the calls end.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

long Told(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atol(value) : 0;
}

/// By system calls alone: the functions may be those that fail.
void TellStruck() {
    const char* path = std::getenv("NTH_STRUCK");
    if (path != nullptr) {
        const long file = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        syscall(SYS_close, file);
    }
}

/// Whether the functions that are to fail are told to be this one or have it among them.
bool IsTold(const char* function) {
    const char* told = std::getenv("NTH_CALL");
    const std::string list = ',' + std::string(told != nullptr ? told : "") + ',';
    return list.find(',' + std::string(function) + ',') != std::string::npos;
}

/// Whether this call of the function is to fail; its error is in errno then.
bool Fails(const char* function) {
    static std::atomic<long> calls{0};
    if (!IsTold(function)) {
        return false;
    }
    const long failed = ++calls - Told("NTH_AT");
    if (failed < 0 || (Told("NTH_TIMES") != 0 && failed >= Told("NTH_TIMES"))) {
        return false;
    }
    TellStruck();
    errno = static_cast<int>(Told("NTH_ERROR"));
    return true;
}

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// A transfer that fails leaves its mark on the stream.
void MarkFailed(std::FILE* stream) {
    stream->_flags |= _IO_ERR_SEEN;
}

using Open = std::FILE*(const char*, const char*);

std::FILE* OpenStream(const char* function, const char* path, const char* mode) {
    return Fails(function) ? nullptr : Next<Open>(function)(path, mode);
}

}  // namespace

extern "C" {

std::FILE* fopen(const char* path, const char* mode) {
    return OpenStream("fopen", path, mode);
}

/// What the stream library opens files with.
std::FILE* fopen64(const char* path, const char* mode) {
    return OpenStream("fopen64", path, mode);
}

std::FILE* fdopen(int file, const char* mode) noexcept {
    return Fails("fdopen") ? nullptr : Next<std::FILE*(int, const char*)>("fdopen")(file, mode);
}

int fseeko64(std::FILE* stream, off64_t offset, int whence) {
    return Fails("fseeko64")
               ? -1
               : Next<int(std::FILE*, off64_t, int)>("fseeko64")(stream, offset, whence);
}

int fseek(std::FILE* stream, long offset, int whence) {
    return Fails("fseek") ? -1 : Next<int(std::FILE*, long, int)>("fseek")(stream, offset, whence);
}

std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* stream) {
    if (Fails("fwrite")) {
        MarkFailed(stream);
        return 0;
    }
    return Next<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)>("fwrite")(
        bytes, size, count, stream);
}

std::size_t fread(void* bytes, std::size_t size, std::size_t count, std::FILE* stream) {
    if (Fails("fread")) {
        MarkFailed(stream);
        return 0;
    }
    return Next<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread")(bytes, size,
                                                                                   count, stream);
}

int getc(std::FILE* stream) {
    if (Fails("getc")) {
        MarkFailed(stream);
        return EOF;
    }
    return Next<int(std::FILE*)>("getc")(stream);
}

int fflush(std::FILE* stream) {
    return Fails("fflush") ? EOF : Next<int(std::FILE*)>("fflush")(stream);
}

/// A stream is gone whatever closing it says.
int fclose(std::FILE* stream) {
    const int result = Next<int(std::FILE*)>("fclose")(stream);
    return Fails("fclose") ? EOF : result;
}

int setvbuf(std::FILE* stream, char* buffer, int mode, std::size_t size) noexcept {
    return Fails("setvbuf") ? -1
                            : Next<int(std::FILE*, char*, int, std::size_t)>("setvbuf")(
                                  stream, buffer, mode, size);
}

int fsync(int file) {
    return Fails("fsync") ? -1 : Next<int(int)>("fsync")(file);
}

int open(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : mode_t{0};
    va_end(more);
    return Fails("open") ? -1 : Next<int(const char*, int, mode_t)>("open")(path, flags, mode);
}

int stat(const char* path, struct stat* facts) noexcept {
    return Fails("stat") ? -1 : Next<int(const char*, struct stat*)>("stat")(path, facts);
}

int fstat(int file, struct stat* facts) noexcept {
    return Fails("fstat") ? -1 : Next<int(int, struct stat*)>("fstat")(file, facts);
}

int access(const char* path, int mode) noexcept {
    return Fails("access") ? -1 : Next<int(const char*, int)>("access")(path, mode);
}

int ioctl(int file, unsigned long request, ...) noexcept {
    va_list more;
    va_start(more, request);
    void* argument = va_arg(more, void*);
    va_end(more);
    // Curses asks its terminal much; what counts is the size of a device.
    return request == BLKGETSIZE64 && Fails("ioctl")
               ? -1
               : Next<int(int, unsigned long, ...)>("ioctl")(file, request, argument);
}

ssize_t pread64(int file, void* bytes, std::size_t size, off64_t offset) {
    return Fails("pread64") ? -1
                            : Next<ssize_t(int, void*, std::size_t, off64_t)>("pread64")(
                                  file, bytes, size, offset);
}

ssize_t write(int file, const void* bytes, std::size_t size) {
    // A terminal that takes nothing cannot be given back either.
    return isatty(file) == 0 && Fails("write")
               ? -1
               : Next<ssize_t(int, const void*, std::size_t)>("write")(file, bytes, size);
}

ssize_t writev(int file, const iovec* pieces, int count) {
    return Fails("writev") ? -1
                           : Next<ssize_t(int, const iovec*, int)>("writev")(file, pieces, count);
}

int eventfd(unsigned int value, int flags) noexcept {
    return Fails("eventfd") ? -1 : Next<int(unsigned int, int)>("eventfd")(value, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
    return Fails("pthread_create") ? errno
                                   : Next<decltype(pthread_create)>("pthread_create")(
                                         thread, attributes, routine, argument);
}

void* newterm(const char* type, std::FILE* output, std::FILE* input) {
    return Fails("newterm")
               ? nullptr
               : Next<void*(const char*, std::FILE*, std::FILE*)>("newterm")(type, output, input);
}

int deflateInit_(z_stream* stream, int level, const char* version, int size) {
    return Fails("deflateInit_")
               ? errno
               : Next<decltype(deflateInit_)>("deflateInit_")(stream, level, version, size);
}

int deflate(z_stream* stream, int flush) {
    return Fails("deflate") ? errno : Next<decltype(deflate)>("deflate")(stream, flush);
}

int deflateReset(z_stream* stream) {
    return Fails("deflateReset") ? errno : Next<decltype(deflateReset)>("deflateReset")(stream);
}

int deflateEnd(z_stream* stream) {
    const int result = Next<decltype(deflateEnd)>("deflateEnd")(stream);
    return Fails("deflateEnd") ? errno : result;
}

int inflateInit_(z_stream* stream, const char* version, int size) {
    return Fails("inflateInit_")
               ? errno
               : Next<decltype(inflateInit_)>("inflateInit_")(stream, version, size);
}

int inflate(z_stream* stream, int flush) {
    return Fails("inflate") ? errno : Next<decltype(inflate)>("inflate")(stream, flush);
}

int inflateReset(z_stream* stream) {
    return Fails("inflateReset") ? errno : Next<decltype(inflateReset)>("inflateReset")(stream);
}

int inflateEnd(z_stream* stream) {
    const int result = Next<decltype(inflateEnd)>("inflateEnd")(stream);
    return Fails("inflateEnd") ? errno : result;
}

}  // extern "C"
