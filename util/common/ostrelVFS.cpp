#include "util/common/ostrelVFS.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/tXML.h"

namespace {

std::string Quoted(std::string_view text) {
    std::string quoted("\"");
    quoted.append(text).append("\"");
    return quoted;
}

void LogChannelFailure(const char* where, const char* what, const std::string& path,
                       std::string_view reason) {
    LogLine() << where << what << Quoted(path) << " because of " << Quoted(reason) << '\n';
}

std::string DataStreamSwitch(const char* dataStream) {
    if (dataStream == nullptr) {
        return "<virtualIO><datastream/></virtualIO>";
    }
    return "<virtualIO><datastream name=" + Quoted(dataStream) + "/></virtualIO>";
}

/// The number behind the first opening parenthesis that has one.
std::uint64_t StatusInParentheses(std::string_view text) {
    std::uint64_t status = zERR_GENERIC_OSTREL_ERROR;
    for (std::size_t at = 1; at < text.size(); ++at) {
        if (text[at - 1] == '(' &&
            TXML::XML_UTF8ToQUAD(text.data() + at, text.data() + text.size(), status) == 0) {
            break;
        }
    }
    return status;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
OstrelVirtualFileServices::OstrelVirtualFileServices(unsigned flags, const char* filePath,
                                                     const char* server, const char* dataStream)
    : flags_(flags != 0 ? flags : kDefaultFlags) {
    if (server != nullptr && *server != '\0') {
        serverPrefix_ = std::string("//") + server;
    }
    path_ = serverPrefix_ + filePath;
    if ((flags_ & kTracePath) != 0) {
        LogLine() << "util/common/ostrelVFS[133] " << path_ << '\n';
    }
    file_ = OpenServiceFile(path_.c_str(), "r+", kLongestRequest);
    if (file_ == nullptr) {
        LogChannelFailure("util/common/ostrelVFS[140]", " Could not open ", path_,
                          std::strerror(errno));
        throw std::runtime_error("Could not open command file");
    }
    SwitchToDataStream(dataStream);
}

OstrelVirtualFileServices::~OstrelVirtualFileServices() {
    if (std::fflush(file_.get()) != 0) {
        LogSystemError("Unable to flush data 2", errno);
    }
}

void OstrelVirtualFileServices::SwitchToDataStream(const char* dataStream) {
    const std::string text = DataStreamSwitch(dataStream);
    if (std::fwrite(text.data(), text.size(), 1, file_.get()) != 1) {
        LogChannelFailure("util/common/ostrelVFS[159]", " Could not write to ", path_,
                          std::strerror(errno));
        file_.reset();
        throw std::runtime_error("Could not switch to command mode");
    }
    // Only the write is fatal. Whatever the flush or the seek failed at shows in the first
    // exchange.
    if (std::fflush(file_.get()) != 0) {
        LogSystemError("Unable to flush data 1", errno);
    }
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0) {
        LogSystemError("Unable to fseek to 0 -- case 1", errno);
    }
}

void OstrelVirtualFileServices::Write(const char* text, std::size_t length) {
    // The result does not matter: what counts is whether the service takes the request.
    std::fseek(file_.get(), 0, SEEK_SET);
    // A longer one would leave the buffer in pieces, each of them a request to the service.
    const bool fits = length <= kLongestRequest;
    if (!fits || std::fwrite(text, 1, length, file_.get()) != length) {
        const int error = fits ? errno : EMSGSIZE;
        LogChannelFailure("util/common/ostrelVFS[311]", " Could not write to ", path_,
                          std::strerror(error));
        throw AdminError("Could not write command", "util/common/ostrelVFS[312]", error);
    }
    // A request that does not go out is not fatal either: the read of its reply tells.
    if (std::fflush(file_.get()) != 0) {
        LogSystemError("Unable to flush data 3", errno);
    }
}

unsigned long OstrelVirtualFileServices::Read(char* buffer, unsigned long size,
                                              std::uint32_t offset) {
    std::fseek(file_.get(), static_cast<long>(offset), SEEK_SET);
    const std::size_t count = std::fread(buffer, 1, size, file_.get());
    if (count == 0 && std::feof(file_.get()) == 0) {
        const int error = errno;
        LogChannelFailure("util/common/ostrelVFS[268]", " Could not read from ", path_,
                          std::strerror(error));
        throw AdminError("Could not read", "util/common/ostrelVFS[269]", error);
    }
    std::uint64_t status = 0;
    // The service reports a refused write at the start of a reply alone.
    if (offset == 0 && IsFunnyErrorPresent(count, buffer, status)) {
        LogChannelFailure("util/common/ostrelVFS[291]", " Could not read from ", path_,
                          std::to_string(status));
        throw AdminError("Could not read because of a write error ",
                         static_cast<std::int32_t>(status), "util/common/ostrelVFS[292]");
    }
    return count;
}

bool OstrelVirtualFileServices::IsFunnyErrorPresent(std::size_t length, const char* text,
                                                    std::uint64_t& status) {
    status = 0;
    if (length < 14 || !std::string_view(text, length).starts_with("<writeResult>")) {
        return false;
    }
    TXML::XML_ElementInfo_s info;
    if (TXML::MOSTREL_GetTagTemplate("<writeResult>", "<error>", length, text, info) != 0) {
        return false;
    }
    status = StatusInParentheses({info.contentStart, info.contentLength});
    return true;
}
