#include "sim/busHub.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace sim {

std::string DescribeRegistration(const Registration& registration) {
    std::ostringstream text;
    text << registration.consumer << " for " << registration.event << ", handle 0x" << std::hex
         << registration.handle << ", context 0x" << registration.context << ", process "
         << std::dec << registration.connection->PeerProcess();
    return text.str();
}

std::string DescribeAnswer(const ConsumerAnswer& answer) {
    if (answer.kind != ConsumerAnswer::Kind::Answered) {
        return answer.kind == ConsumerAnswer::Kind::Gone ? "is gone" : "has not answered";
    }
    std::ostringstream text;
    text << "answered 0x" << std::hex << std::uppercase << answer.answer;
    if (answer.refusalStatus != 0) {
        text << " with " << std::dec << answer.refusalStatus;
    }
    return text.str();
}

std::optional<std::uint64_t> BusHub::Register(Registration registration) {
    if (!IsKnownEvent(registration.event)) {
        return std::nullopt;
    }
    const std::scoped_lock lock(mutex_);
    const std::uint64_t handle = nextHandle_++;
    registration.handle = handle;
    trace_.Add("register", DescribeRegistration(registration));
    registrations_.emplace(handle, std::move(registration));
    return handle;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): as the bus passes them
bool BusHub::Unregister(const MessageSocket* connection, std::uint64_t handle,
                        std::uint64_t context) {
    const std::scoped_lock lock(mutex_);
    const auto found = registrations_.find(handle);
    if (found == registrations_.end() || found->second.context != context ||
        found->second.connection.get() != connection) {
        return false;
    }
    trace_.Add("unregister", DescribeRegistration(found->second));
    registrations_.erase(found);
    return true;
}

void BusHub::Answer(const MessageSocket* connection, std::uint64_t delivery, std::uint32_t answer,
                    std::uint64_t refusalStatus) {
    const std::scoped_lock lock(mutex_);
    const auto found = deliveries_.find(delivery);
    if (found == deliveries_.end() || found->second.connection.get() != connection ||
        !found->second.open) {
        return;
    }
    ConsumerAnswer& taken = found->second.answer;
    taken.kind = ConsumerAnswer::Kind::Answered;
    taken.answer = answer;
    taken.refusalStatus = refusalStatus;
    found->second.open = false;
    trace_.Add("answer", taken.consumer + " " + DescribeAnswer(taken));
    changed_.notify_all();
}

void BusHub::Drop(const MessageSocket* connection) {
    const std::scoped_lock lock(mutex_);
    for (auto it = registrations_.begin(); it != registrations_.end();) {
        const bool dropped = it->second.connection.get() == connection;
        if (dropped) {
            trace_.Add("drop", DescribeRegistration(it->second));
        }
        it = dropped ? registrations_.erase(it) : std::next(it);
    }
    // A service that stops ends the connections itself: their consumers have not gone, and what
    // waits for their answers must not take it so and go on.
    for (auto& [id, delivery] : deliveries_) {
        if (delivery.open && !stopped_ && delivery.connection.get() == connection) {
            delivery.answer.kind = ConsumerAnswer::Kind::Gone;
            delivery.open = false;
        }
    }
    changed_.notify_all();
}

// Opened before anything is sent, so that no answer comes too early, and for those alone who are
// registered at this moment.
BusHub::Deliveries BusHub::OpenDeliveries(const std::string& event) {
    const std::scoped_lock lock(mutex_);
    Deliveries opened;
    for (const auto& [handle, registration] : registrations_) {
        if (registration.event == event) {
            Delivery delivery;
            delivery.answer.consumer = registration.consumer;
            delivery.answer.handle = handle;
            delivery.connection = registration.connection;
            deliveries_.emplace(nextDelivery_, std::move(delivery));
            opened.push_back(nextDelivery_++);
        }
    }
    return opened;
}

// Without the lock while it sends: a peer that takes nothing must not hold up the others' calls.
void BusHub::SendAll(const Deliveries& deliveries, const BusEvent& event) {
    for (const std::uint64_t id : deliveries) {
        std::shared_ptr<MessageSocket> connection;
        Message message;
        {
            const std::scoped_lock lock(mutex_);
            const Delivery& delivery = deliveries_.at(id);
            connection = delivery.connection;
            message = MessageOfEvent(id, delivery.answer.handle, event);
            trace_.Add("event", event.name + " to " + delivery.answer.consumer);
        }
        if (!connection->Send(message)) {
            Drop(connection.get());
        }
    }
}

bool BusHub::AllClosed(const Deliveries& deliveries) const {
    return std::none_of(deliveries.begin(), deliveries.end(),
                        [&](std::uint64_t id) { return deliveries_.at(id).open; });
}

std::vector<ConsumerAnswer> BusHub::TakeAnswers(const Deliveries& deliveries) {
    std::vector<ConsumerAnswer> answers;
    for (const std::uint64_t id : deliveries) {
        answers.push_back(std::move(deliveries_.at(id).answer));
        deliveries_.erase(id);
    }
    return answers;
}

std::vector<ConsumerAnswer> BusHub::Announce(const BusEvent& event, Timeout timeout) {
    const Deliveries deliveries = OpenDeliveries(event.name);
    SendAll(deliveries, event);
    std::unique_lock lock(mutex_);
    const auto settled = [&] { return stopped_ || AllClosed(deliveries); };
    if (timeout) {
        changed_.wait_for(lock, *timeout, settled);
    } else {
        changed_.wait(lock, settled);
    }
    return TakeAnswers(deliveries);
}

std::vector<Registration> BusHub::Registrations() const {
    const std::scoped_lock lock(mutex_);
    std::vector<Registration> all;
    for (const auto& entry : registrations_) {
        all.push_back(entry.second);
    }
    return all;
}

void BusHub::Stop() {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

}  // namespace sim
