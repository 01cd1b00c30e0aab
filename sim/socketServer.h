#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "sim/simulation.h"
#include "sim/wire.h"

namespace sim {

/// Listens on the Unix socket while it lives and serves each connection, of a bus library or of
/// the control command, on a thread of its own.
class SocketServer {
  public:
    /// Throws std::runtime_error when the socket cannot be had, or another service listens there.
    SocketServer(Simulation& simulation, const std::string& path);
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    /// Ends every connection; the waits of the simulation must have been ended before.
    ~SocketServer();

  private:
    struct Served {
        std::shared_ptr<MessageSocket> connection;
        std::atomic<bool> ended{false};
        std::thread thread;
    };

    void Accept();
    void Begin(int descriptor);
    void JoinEnded();

    Simulation& simulation_;
    const std::string path_;
    int listening_ = -1;
    std::atomic<bool> ending_{false};
    std::list<Served> served_;  // the acceptor's while it runs
    std::thread acceptor_;
};

}  // namespace sim
