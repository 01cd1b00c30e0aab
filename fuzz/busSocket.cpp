// The bus's socket: lines that a peer sends. They are read as they are written, whatever the pieces
// they come in, and the service answers the questions among them and outlives the rest.

#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "sim/busEvent.h"
#include "sim/simulation.h"
#include "sim/socketServer.h"
#include "sim/textTools.h"
#include "tests/support/temporaryDirectory.h"

namespace {

/// A service that listens as long as this process lives.
class Served {
  public:
    Served() : simulation_([] { return false; }), server_(simulation_, Path()) {}

    std::string Path() const { return folder_.File("socket"); }
    sim::BusHub& Hub() { return simulation_.hub; }

  private:
    support::TemporaryDirectory folder_;
    sim::Simulation simulation_;
    sim::SocketServer server_;
};

/// A line and the message in it are the same, but for the escapes that there was no need of.
void CheckLine(std::string_view line) {
    const auto message = sim::MessageOfLine(line);
    if (!message) {
        return;
    }
    std::string again = sim::LineOfMessage(*message);
    fuzz::Require(again.ends_with('\n'), "a line has an end");
    again.pop_back();
    fuzz::Require(again.find('\n') == std::string::npos, "and no other");
    fuzz::Require(sim::MessageOfLine(again) == message, "what is written is read back");
    if (const auto event = sim::EventOfMessage(*message)) {
        const auto back = sim::MessageOfEvent(event->delivery, event->handle, event->event);
        const auto other = sim::EventOfMessage(back);
        fuzz::Require(
            other && sim::MessageOfEvent(other->delivery, other->handle, other->event) == back,
            "an event too");
    }
}

/// A socket gives out the lines as messages, up to the first that is none, in whatever pieces it
/// gets them.
void CheckPieces(std::string_view bytes, std::size_t piece) {
    int ends[2] = {-1, -1};
    fuzz::Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "two ends");
    sim::MessageSocket reader(ends[0]);
    {
        const sim::MessageSocket writer(ends[1]);
        for (std::string_view rest = bytes; !rest.empty();) {
            const std::size_t sent = std::min(piece, rest.size());
            send(ends[1], rest.data(), sent, MSG_NOSIGNAL);
            rest.remove_prefix(sent);
        }
    }
    fuzz::Input lines(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                      bytes.rfind('\n') == std::string_view::npos ? 0 : bytes.rfind('\n') + 1);
    bool understood = true;
    while (understood && !lines.Empty()) {
        const auto wanted = sim::MessageOfLine(lines.Word('\n'));
        understood = wanted.has_value();
        fuzz::Require(reader.Receive() == wanted, "each line as a message");
    }
    fuzz::Require(!understood || !reader.Receive(), "and nothing behind them");
}

bool IsQuestion(const sim::Message& message) {
    return (message[0] == "register" && message.size() == 5) ||
           (message[0] == "unregister" && message.size() == 4);
}

bool IsSilent(const sim::Message& message) {
    return (message[0] == "withdraw" && message.size() == 2) ||
           (message[0] == "answer" && message.size() == 4);
}

/// Sends all but commands of the control, which are another target's; every question is answered.
void CheckServed(Served& served, std::string_view bytes) {
    sim::MessageSocket peer(sim::ConnectToService(served.Path()));
    fuzz::Input lines(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    while (!lines.Empty()) {
        const auto message = sim::MessageOfLine(lines.Word('\n'));
        if (!message || message->front() == "control") {
            continue;
        }
        if (!peer.Send(*message)) {
            break;
        }
        if (!IsQuestion(*message)) {
            if (!IsSilent(*message)) {
                fuzz::Require(!peer.Receive(), "who says something else is shown out");
                break;
            }
            continue;
        }
        const auto reply = peer.Receive();
        fuzz::Require(reply && reply->size() == 4 && reply->at(0) == "reply" &&
                          reply->at(1) == message->at(1),
                      "a question has its reply");
    }
    peer.Shutdown();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Served* const served = new Served;  // NOLINT: its threads last as long as the process
    fuzz::Input input(data, size);
    const std::size_t step = input.Byte() % 64U;
    const std::string_view bytes = input.Rest().substr(0, 4096);
    const std::size_t piece = bytes.size() / 64 + 1 + step;  // few enough to wait in the socket
    for (const std::string& line : sim::Split(bytes, '\n')) {
        CheckLine(line);
    }
    CheckPieces(bytes, piece);
    CheckServed(*served, bytes);
    return 0;
}
