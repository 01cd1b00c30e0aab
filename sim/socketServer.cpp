#include "sim/socketServer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "sim/controlCommands.h"
#include "sim/statuses.h"
#include "sim/textTools.h"

namespace sim {
namespace {

// How long to wait for a descriptor when every one is in use.
constexpr std::chrono::milliseconds kFullPause{50};

int Listen(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("the socket's path is too long: " + path);
    }
    const int other = ConnectToService(path);
    if (other >= 0) {
        close(other);
        throw std::runtime_error("another service listens at " + path);
    }
    unlink(path.c_str());
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listening < 0 ||
        bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listening, 64) != 0) {
        const std::string reason = std::strerror(errno);
        close(listening);
        throw std::runtime_error("could not listen at " + path + ": " + reason);
    }
    return listening;
}

// Serves the messages of one connection.
class Connection {
  public:
    Connection(Simulation& simulation, const std::shared_ptr<MessageSocket>& socket)
        : simulation_(simulation), socket_(socket) {}

    void Serve() {
        while (const auto message = socket_->Receive()) {
            Take(*message);
        }
        simulation_.hub.Drop(socket_.get());
    }

  private:
    void Take(const Message& message);
    void Register(const Message& message);
    void Unregister(const Message& message);
    void Withdraw(std::uint64_t handle);
    void Control(const Message& message);
    void Reply(const std::string& question, std::uint64_t status, std::uint64_t handle) {
        socket_->Send({"reply", question, std::to_string(status), std::to_string(handle)});
    }
    std::uint64_t FaultStatus(FaultPoint point);

    Simulation& simulation_;
    const std::shared_ptr<MessageSocket>& socket_;
};

std::uint64_t NumberIn(const Message& message, std::size_t index) {
    return ToNumber(message.at(index)).value_or(0);
}

void Connection::Take(const Message& message) {
    const std::string& verb = message.front();
    if (verb == "register" && message.size() == 5) {
        Register(message);
    } else if (verb == "unregister" && message.size() == 4) {
        Unregister(message);
    } else if (verb == "withdraw" && message.size() == 2) {
        Withdraw(NumberIn(message, 1));
    } else if (verb == "answer" && message.size() == 4) {
        simulation_.hub.Answer(socket_.get(), NumberIn(message, 1),
                               static_cast<std::uint32_t>(NumberIn(message, 2)),
                               NumberIn(message, 3));
    } else if (verb == "control") {
        Control(message);
    } else {
        socket_->Shutdown();
    }
}

// The status of an injected refusal; 0 when there is none.
std::uint64_t Connection::FaultStatus(FaultPoint point) {
    const auto faults = simulation_.faults.Strike(point);
    return faults.empty() ? 0 : faults.front().number;
}

// "register question event consumer context"
void Connection::Register(const Message& message) {
    const std::uint64_t refusal = FaultStatus(FaultPoint::BusRegister);
    if (refusal != 0) {
        simulation_.trace.Add("refused register", message[3] + " for " + message[2]);
        Reply(message[1], refusal, 0);
        return;
    }
    const auto handle =
        simulation_.hub.Register({0, message[2], message[3], NumberIn(message, 4), socket_});
    Reply(message[1], handle ? 0 : kBadParameter, handle.value_or(0));
}

// "unregister question handle context"
void Connection::Unregister(const Message& message) {
    const std::uint64_t refusal = FaultStatus(FaultPoint::BusUnregister);
    if (refusal != 0) {
        simulation_.trace.Add("refused unregister", "handle " + message[2]);
        Reply(message[1], refusal, 0);
        return;
    }
    const bool removed =
        simulation_.hub.Unregister(socket_.get(), NumberIn(message, 2), NumberIn(message, 3));
    Reply(message[1], removed ? 0 : kBadParameter, 0);
}

// The consumer did not wait long enough for its registration's reply.
void Connection::Withdraw(std::uint64_t handle) {
    for (const Registration& registration : simulation_.hub.Registrations()) {
        if (registration.handle == handle) {
            simulation_.hub.Unregister(socket_.get(), handle, registration.context);
        }
    }
}

void Connection::Control(const Message& message) {
    const CommandResult result =
        RunControlCommand(simulation_, std::vector(message.begin() + 1, message.end()));
    for (const std::string& line : result.lines) {
        socket_->Send({"line", line});
    }
    socket_->Send({"end", std::to_string(result.status)});
    if (result.endsService) {
        kill(getpid(), SIGTERM);  // the main thread waits for it
    }
}

}  // namespace

SocketServer::SocketServer(Simulation& simulation, const std::string& path)
    : simulation_(simulation),
      path_(path),
      listening_(Listen(path)),
      acceptor_([this] { Accept(); }) {}

SocketServer::~SocketServer() {
    // First nobody comes any more, then those who are there are ended.
    ending_ = true;
    shutdown(listening_, SHUT_RDWR);
    acceptor_.join();
    close(listening_);
    unlink(path_.c_str());
    for (Served& served : served_) {
        served.connection->Shutdown();
        served.thread.join();
    }
}

void SocketServer::Accept() {
    while (!ending_) {
        const int descriptor = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            Begin(descriptor);
        } else if (errno == EMFILE || errno == ENFILE) {
            JoinEnded();  // which may give some back
            std::this_thread::sleep_for(kFullPause);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

void SocketServer::Begin(int descriptor) {
    LimitWaits(descriptor);
    JoinEnded();
    Served& served = served_.emplace_back();
    served.connection = std::make_shared<MessageSocket>(descriptor);
    try {
        served.thread = std::thread([this, &served] {
            Connection(simulation_, served.connection).Serve();
            served.ended = true;
        });
    } catch (const std::system_error&) {
        served_.pop_back();  // there is no thread for it: the peer sees its connection closed
    }
}

void SocketServer::JoinEnded() {
    for (auto it = served_.begin(); it != served_.end();) {
        if (it->ended) {
            it->thread.join();
            it = served_.erase(it);
        } else {
            ++it;
        }
    }
}

}  // namespace sim
