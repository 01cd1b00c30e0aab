#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// One message between the service, the bus library and the control command: its words. It
/// travels as a line of text, the words parted by one blank; bytes up to the blank, "%" and 0x7F
/// stand as "%" and two hexadecimal digits, an empty word as "%-".
using Message = std::vector<std::string>;

std::string LineOfMessage(const Message& message);

/// Nothing for a line with a broken escape.
std::optional<Message> MessageOfLine(std::string_view line);

/// The socket's path: `OSTRELSIM_SOCKET` of the environment, else "/run/ostrelsim.sock".
std::string DefaultSocketPath();

/// One end of a connection that carries messages. Owns the descriptor. `Send` and `Shutdown` may
/// be called on any thread, `Receive` on one.
class MessageSocket {
  public:
    explicit MessageSocket(int descriptor) : descriptor_(descriptor) {}
    MessageSocket(const MessageSocket&) = delete;
    MessageSocket& operator=(const MessageSocket&) = delete;
    ~MessageSocket();

    /// False when the peer is gone, or takes nothing for five seconds.
    bool Send(const Message& message);

    /// Waits for the next message; nothing when the connection has ended or the peer sends
    /// something else.
    std::optional<Message> Receive();

    /// Ends the connection both ways, which also ends a `Receive` that waits.
    void Shutdown() const;

    /// The process at the other end; 0 when it is not known.
    int PeerProcess() const;

  private:
    std::optional<std::string> ReceiveLine();

    const int descriptor_;
    std::mutex sendMutex_;
    std::string received_;
};

/// A socket connected to the service at `path`, or -1 with errno set; waits five seconds at most.
int ConnectToService(const std::string& path);

}  // namespace sim
