#include "tests/support/cannedService.h"

#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

/// One open file, a conversation of its own.
struct CannedService::Stream {
    CannedService& service;
    std::string reply;
    std::size_t answered = 0;
    off64_t position = 0;
    bool switched = false;

    ssize_t Write(const char* text, std::size_t length) {
        ++service.writes;
        if (service.writeError != 0) {
            switched = true;
            errno = service.writeError;
            return 0;
        }
        if (position != 0) {
            service.requests.back().append(text, length);
        } else {
            service.requests.emplace_back(text, length);
            reply.clear();
            if (switched && !service.replies.empty()) {
                reply = service.replies[std::min(answered++, service.replies.size() - 1)];
            }
            switched = true;
        }
        position += static_cast<off64_t>(length);
        return static_cast<ssize_t>(length);
    }

    ssize_t Read(char* buffer, std::size_t length) {
        if (service.readError != 0) {
            errno = service.readError;
            return -1;
        }
        const std::size_t from = std::min(reply.size(), static_cast<std::size_t>(position));
        const std::size_t count = std::min(length, reply.size() - from);
        std::memcpy(buffer, reply.data() + from, count);
        position += static_cast<off64_t>(count);
        return static_cast<ssize_t>(count);
    }

    int Seek(off64_t* offset, int whence) {
        if (service.seekError != 0 || whence == SEEK_END) {
            errno = service.seekError != 0 ? service.seekError : EINVAL;
            return -1;
        }
        position = *offset + (whence == SEEK_CUR ? position : 0);
        *offset = position;
        return 0;
    }
};

CannedService::CannedService() : previous_(ReplaceServiceFiles(this)) {}

CannedService::~CannedService() {
    ReplaceServiceFiles(previous_);
}

std::FILE* CannedService::Open(const char* path, const char* mode) {
    opened.push_back(std::string(path) + " " + mode);
    if (openError != 0) {
        errno = openError;
        return nullptr;
    }
    cookie_io_functions_t calls{};
    calls.read = [](void* cookie, char* buffer, std::size_t length) {
        return static_cast<Stream*>(cookie)->Read(buffer, length);
    };
    calls.write = [](void* cookie, const char* text, std::size_t length) {
        return static_cast<Stream*>(cookie)->Write(text, length);
    };
    calls.seek = [](void* cookie, off64_t* offset, int whence) {
        return static_cast<Stream*>(cookie)->Seek(offset, whence);
    };
    calls.close = [](void* cookie) {
        const std::unique_ptr<Stream> stream(static_cast<Stream*>(cookie));
        --stream->service.openFiles;
        return 0;
    };
    auto stream = std::make_unique<Stream>(Stream{*this, {}, 0, 0, false});
    // A file that is only read is served whole: it needs no request.
    if (std::strchr(mode, '+') == nullptr && !replies.empty()) {
        stream->reply = replies.front();
    }
    std::FILE* file = fopencookie(stream.release(), mode, calls);
    ++openFiles;
    return file;
}

std::string PoolInfoReply(const std::string& basicInfo, const std::string& result) {
    return "<ostrelReply><pool><getPoolInfo><basicInfo>" + basicInfo +
           "</basicInfo><result value=\"" + result +
           "\"/></getPoolInfo></pool><result value=\"0\"/></ostrelReply>";
}

std::string VolumeInfoReply(const std::string& basicInfo, const std::string& result) {
    return "<ostrelReply><volume><getVolumeInfo><basicInfo>" + basicInfo +
           "</basicInfo><result value=\"" + result +
           "\"/></getVolumeInfo></volume><result value=\"0\"/></ostrelReply>";
}

std::string PoolReply(const std::string& state, const std::string& guid) {
    return PoolInfoReply("<poolState>" + state + "</poolState><poolGUID>" + guid + "</poolGUID>");
}
