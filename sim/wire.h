#pragma once

#include <chrono>
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

/// The line that carries a message, with its end.
std::string LineOfMessage(const Message& message);

/// The message that a line without its end carries; nothing for one with a broken escape.
std::optional<Message> MessageOfLine(std::string_view line);

/// The socket's path: `OSTRELSIM_SOCKET` of the environment, else "/run/ostrelsim.sock".
std::string DefaultSocketPath();

/// How long one end waits for another that stands still: `OSTRELSIM_PATIENCE` of the environment,
/// in milliseconds above 0, else five seconds.
std::chrono::milliseconds Patience();

/// Ends a connect or a send on that socket after `Patience()`.
void LimitWaits(int descriptor);

/// One end of a connection that carries messages. Owns the descriptor. `Send` and `Shutdown` may
/// be called on any thread, `Receive` on one.
class MessageSocket {
  public:
    /// Takes a connected socket over.
    explicit MessageSocket(int descriptor) : descriptor_(descriptor) {}
    MessageSocket(const MessageSocket&) = delete;
    MessageSocket& operator=(const MessageSocket&) = delete;
    ~MessageSocket();

    /// False when the peer is gone, or takes nothing for as long as `LimitWaits` allows.
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

/// A socket with `LimitWaits` that is connected to the service at `path`, or -1 with errno set.
int ConnectToService(const std::string& path);

}  // namespace sim
