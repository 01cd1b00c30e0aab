#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/busEvent.h"
#include "sim/trace.h"
#include "sim/wire.h"

namespace sim {

/// A consumer that is registered for one event.
struct Registration {
    std::uint64_t handle = 0;
    std::string event;
    std::string consumer;       ///< its name
    std::uint64_t context = 0;  ///< the consumer's own; means nothing to the service
    std::shared_ptr<MessageSocket> connection;
};

/// What one consumer made of an event.
struct ConsumerAnswer {
    enum class Kind { Answered, Gone, Silent };  // Gone: its process ended before it answered
    Kind kind = Kind::Silent;
    std::string consumer;
    std::uint64_t handle = 0;
    std::uint32_t answer = 0;         ///< of one that answered
    std::uint64_t refusalStatus = 0;  ///< its reason; counts beside a veto alone

    bool IsVeto() const { return kind == Kind::Answered && answer == kVeto; }
};

/// The event bus on the service's side: the registrations, and the events under delivery. Any
/// thread may call it.
class BusHub {
  public:
    using Timeout = std::optional<std::chrono::milliseconds>;  ///< nothing: without an end

    explicit BusHub(Trace& trace) : trace_(trace) {}

    /// Gives the new handle, never 0; nothing when there is no such event.
    std::optional<std::uint64_t> Register(Registration registration);

    /// False when that connection holds no registration with that handle and context.
    bool Unregister(const MessageSocket* connection, std::uint64_t handle, std::uint64_t context);

    /// Takes an answer to the delivery of an event.
    void Answer(const MessageSocket* connection, std::uint64_t delivery, std::uint32_t answer,
                std::uint64_t refusalStatus);

    /// Forgets everything that a connection which has ended had registered or still had to answer.
    void Drop(const MessageSocket* connection);

    /// Delivers the event to every consumer that is registered for it now and waits for all the
    /// answers, for `timeout` at most.
    std::vector<ConsumerAnswer> Announce(const BusEvent& event, Timeout timeout);

    /// Those of this moment, oldest first.
    std::vector<Registration> Registrations() const;

    /// Ends every wait, now and later.
    void Stop();

  private:
    struct Delivery {
        ConsumerAnswer answer;
        std::shared_ptr<MessageSocket> connection;
        bool open = true;
    };
    using Deliveries = std::vector<std::uint64_t>;

    Deliveries OpenDeliveries(const std::string& event);
    void SendAll(const Deliveries& deliveries, const BusEvent& event);
    bool AllClosed(const Deliveries& deliveries) const;
    std::vector<ConsumerAnswer> TakeAnswers(const Deliveries& deliveries);

    Trace& trace_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::uint64_t, Registration> registrations_;
    std::map<std::uint64_t, Delivery> deliveries_;
    std::uint64_t nextHandle_ = 0x4845420000000001ULL;
    std::uint64_t nextDelivery_ = 1;
    bool stopped_ = false;
};

/// A trace's or a list's way of naming a consumer.
std::string DescribeRegistration(const Registration& registration);

/// "answered 0xFFFF00 with 20880", "answered 0x0", "is gone" or "has not answered".
std::string DescribeAnswer(const ConsumerAnswer& answer);

}  // namespace sim
