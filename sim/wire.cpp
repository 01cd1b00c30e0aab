#include "sim/wire.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "sim/textTools.h"

namespace sim {
namespace {

constexpr std::size_t kLongestLine = 1U << 20;

void AppendWord(std::string& line, std::string_view word) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    if (word.empty()) {
        line += "%-";
    }
    for (const char c : word) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte != '%' && byte != 0x7F) {
            line += c;
        } else {
            line += '%';
            line += kDigits[byte >> 4];
            line += kDigits[byte & 15];
        }
    }
}

std::optional<std::string> WordOf(std::string_view text) {
    std::string word;
    if (text == "%-") {
        return word;
    }
    while (!text.empty()) {
        if (text.front() != '%') {
            word += text.front();
            text.remove_prefix(1);
            continue;
        }
        unsigned char byte = 0;
        if (text.size() < 3 ||
            std::from_chars(text.data() + 1, text.data() + 3, byte, 16).ptr != text.data() + 3) {
            return std::nullopt;
        }
        word += static_cast<char>(byte);
        text.remove_prefix(3);
    }
    return word;
}

}  // namespace

std::string LineOfMessage(const Message& message) {
    std::string line;
    for (const std::string& word : message) {
        if (!line.empty()) {
            line += ' ';
        }
        AppendWord(line, word);
    }
    line += '\n';
    return line;
}

std::optional<Message> MessageOfLine(std::string_view line) {
    Message message;
    for (const std::string& text : Split(line, ' ')) {
        auto word = WordOf(text);
        if (!word) {
            return std::nullopt;
        }
        message.push_back(std::move(*word));
    }
    return message;
}

std::string DefaultSocketPath() {
    const char* path = std::getenv("OSTRELSIM_SOCKET");
    return path != nullptr && *path != '\0' ? path : "/run/ostrelsim.sock";
}

std::chrono::milliseconds Patience() {
    constexpr std::chrono::seconds kDefault{5};
    constexpr std::uint64_t kLongest = 1U << 30;
    const char* text = std::getenv("OSTRELSIM_PATIENCE");
    const std::uint64_t asked = ToNumber(text != nullptr ? text : "").value_or(0);
    return asked > 0 && asked <= kLongest ? std::chrono::milliseconds(asked) : kDefault;
}

void LimitWaits(int descriptor) {
    const auto patience = Patience();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience);
    const timeval limit{.tv_sec = seconds.count(),
                        .tv_usec = std::chrono::microseconds(patience - seconds).count()};
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

MessageSocket::~MessageSocket() {
    close(descriptor_);
}

bool MessageSocket::Send(const Message& message) {
    const std::string line = LineOfMessage(message);
    std::string_view rest = line;
    const std::scoped_lock lock(sendMutex_);
    while (!rest.empty()) {
        const ssize_t sent = send(descriptor_, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            Shutdown();  // half a line must not be followed by another one
            return false;
        }
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::optional<std::string> MessageSocket::ReceiveLine() {
    std::size_t searched = 0;
    while (received_.size() <= kLongestLine) {
        const auto end = received_.find('\n', searched);
        if (end != std::string::npos) {
            std::string line = received_.substr(0, end);
            received_.erase(0, end + 1);
            return line;
        }
        searched = received_.size();
        std::array<char, 4096> chunk{};
        const ssize_t count = recv(descriptor_, chunk.data(), chunk.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return std::nullopt;
        }
        received_.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

std::optional<Message> MessageSocket::Receive() {
    const auto line = ReceiveLine();
    return line ? MessageOfLine(*line) : std::nullopt;
}

void MessageSocket::Shutdown() const {
    shutdown(descriptor_, SHUT_RDWR);
}

int MessageSocket::PeerProcess() const {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(descriptor_, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

int ConnectToService(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return -1;
    }
    LimitWaits(descriptor);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return descriptor;
    }
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return -1;
}

}  // namespace sim
