#include "sim/busClient.h"

#include <pthread.h>

#include <csignal>
#include <thread>
#include <utility>

#include "sim/statuses.h"
#include "sim/textTools.h"

namespace sim {
namespace {

// Blocks the process's signals for this thread, and those that it starts, while it lives.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t before_{};
};

// A thread that takes none of the process's signals and does not keep it from ending. Throws
// std::system_error when there is none to be had.
template <typename Work>
void StartThread(Work work) {
    const BlockedSignals blocked;
    std::thread(std::move(work)).detach();
}

}  // namespace

// Locked until the connection stands, so that all calls share one.
BusClient::Connection BusClient::Connect() {
    const std::scoped_lock lock(mutex_);
    if (connection_) {
        return connection_;
    }
    const int descriptor = ConnectToService(DefaultSocketPath());
    if (descriptor < 0) {
        return nullptr;
    }
    const auto connection = std::make_shared<MessageSocket>(descriptor);
    if (!delivering_) {
        StartThread([this] { DeliverEvents(); });
        delivering_ = true;
    }
    StartThread([this, connection] { ReadMessages(connection); });
    connection_ = connection;
    return connection_;
}

// Sends "verb number rest..." and waits for the reply; the status says when none came.
BusClient::Question BusClient::Ask(const Connection& connection, const Message& text,
                                   Question question) {
    std::unique_lock lock(mutex_);
    // Entered before it is sent: the reply may be there before the sending has returned.
    const std::uint64_t number = nextQuestion_++;
    question.status = kGenericError;
    questions_.emplace(number, std::move(question));
    Message numbered = text;
    numbered.insert(numbered.begin() + 1, std::to_string(number));
    lock.unlock();
    const bool sent = connection->Send(numbered);
    lock.lock();
    if (sent) {
        replied_.wait_for(lock, Patience(), [&] {
            return questions_.at(number).answered || connection_ != connection;
        });
    }
    return std::move(questions_.extract(number).mapped());
}

BusClient::Result BusClient::Register(const ConsumerRecord& consumer) {
    const Connection connection = Connect();
    if (!connection) {
        return {kGenericError, 0};
    }
    const Question question =
        Ask(connection,
            {"register", consumer.event, consumer.consumer, std::to_string(consumer.context)},
            {.consumer = consumer});
    return {question.status, question.handle};
}

std::uint64_t BusClient::Unregister(std::uint64_t handle, std::uint64_t context) {
    Connection connection;
    {
        const std::scoped_lock lock(mutex_);
        // A consumer does not outlive its connection, so this one is the connection to ask on.
        const auto found = consumers_.find(handle);
        if (found == consumers_.end() || found->second.context != context) {
            return kBadParameter;
        }
        connection = connection_;
    }
    return Ask(connection, {"unregister", std::to_string(handle), std::to_string(context)},
               {.removes = handle})
        .status;
}

void BusClient::ReadMessages(const Connection& connection) {
    while (const auto message = connection->Receive()) {
        TakeMessage(connection, *message);
    }
    Disconnect(connection);
}

void BusClient::TakeMessage(const Connection& connection, const Message& message) {
    auto event = EventOfMessage(message);
    if (event) {
        const std::scoped_lock lock(mutex_);
        queue_.push_back({std::move(*event), connection});
        queuedEvent_.notify_one();
    } else if (message.size() == 4 && message[0] == "reply") {
        TakeReply(connection, message);
    }
}

// "reply number status handle". A consumer comes and goes here, in the order in which the service
// said so, not when the caller wakes up: an event may follow at once.
void BusClient::TakeReply(const Connection& connection, const Message& message) {
    const std::uint64_t number = ToNumber(message[1]).value_or(0);
    const std::uint64_t status = ToNumber(message[2]).value_or(kGenericError);
    const std::uint64_t handle = ToNumber(message[3]).value_or(0);
    std::unique_lock lock(mutex_);
    const auto found = questions_.find(number);
    if (found == questions_.end()) {
        lock.unlock();
        if (handle != 0) {  // whoever registered has given up waiting
            connection->Send({"withdraw", std::to_string(handle)});
        }
        return;
    }
    Question& question = found->second;
    question.status = status;
    question.handle = handle;
    question.answered = true;
    if (handle != 0) {
        consumers_[handle] = question.consumer;
    }
    if (status == 0) {
        consumers_.erase(question.removes);
    }
    replied_.notify_all();
}

void BusClient::Disconnect(const Connection& connection) {
    const std::scoped_lock lock(mutex_);
    if (connection_ == connection) {
        connection_.reset();
        consumers_.clear();
    }
    replied_.notify_all();
}

void BusClient::DeliverEvents() {
    while (true) {
        std::unique_lock lock(mutex_);
        queuedEvent_.wait(lock, [&] { return !queue_.empty(); });
        const Queued queued = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        Deliver(queued);
    }
}

// The consumer may have gone while the event was in the queue: then it is answered here, so that
// nobody waits for it. No lock is held while a callback runs, since that may wait for a call of its
// owner's.
void BusClient::Deliver(const Queued& queued) {
    ConsumerRecord consumer;
    {
        const std::scoped_lock lock(mutex_);
        const auto found = consumers_.find(queued.event.handle);
        if (found != consumers_.end()) {
            consumer = found->second;
        }
    }
    std::uint32_t answer = 0;
    EventRecords records(queued.event.event, consumer.context);
    if (consumer.callback != nullptr) {
        answer = consumer.callback(records.Block());
    }
    queued.connection->Send({"answer", std::to_string(queued.event.delivery),
                             std::to_string(answer), std::to_string(records.RefusalStatus())});
}

}  // namespace sim
