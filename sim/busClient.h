#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "sim/busEvent.h"
#include "sim/busRecords.h"
#include "sim/wire.h"

namespace sim {

/// The event bus inside a consumer's process. Carries registrations to the service and calls the
/// consumers on one thread of its own. It lives as long as its process: its threads use it and
/// nobody ends them. Any thread may call it; each of a call's waits ends after `Patience()`.
class BusClient {
  public:
    struct Result {
        std::uint64_t status = 0;  ///< 0: registered
        std::uint64_t handle = 0;  ///< the registration's, 0 when it failed
    };

    /// Registers a consumer; the status is not 0 when the service refuses or is not there.
    Result Register(const ConsumerRecord& consumer);

    /// Removes a registration; no event reaches it afterwards, but one that is already with the
    /// consumer is not waited for. When the service refuses, the registration stays alive.
    std::uint64_t Unregister(std::uint64_t handle, std::uint64_t context);

  private:
    using Connection = std::shared_ptr<MessageSocket>;

    struct Question {
        ConsumerRecord consumer{};  // of a registration
        std::uint64_t removes = 0;  // the handle that an unregistration is about
        std::uint64_t status = 0;
        std::uint64_t handle = 0;
        bool answered = false;
    };
    struct Queued {
        DeliveredEvent event;
        Connection connection;
    };

    Connection Connect();
    Question Ask(const Connection& connection, const Message& text, Question question);
    void ReadMessages(const Connection& connection);
    void TakeMessage(const Connection& connection, const Message& message);
    void TakeReply(const Connection& connection, const Message& message);
    void Disconnect(const Connection& connection);
    void DeliverEvents();
    void Deliver(const Queued& queued);

    std::mutex mutex_;
    std::condition_variable replied_;
    std::condition_variable queuedEvent_;
    Connection connection_;
    std::map<std::uint64_t, Question> questions_;
    std::map<std::uint64_t, ConsumerRecord> consumers_;
    std::deque<Queued> queue_;
    std::uint64_t nextQuestion_ = 1;
    bool delivering_ = false;
};

}  // namespace sim
