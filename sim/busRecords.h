#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/busEvent.h"

namespace sim {

/// A consumer's callback: takes the event block, gives the consumer's answer.
using BusCallback = std::uint32_t (*)(void* eventBlock);

/// What a consumer's registration record says.
struct ConsumerRecord {
    std::string consumer;       ///< the consumer's name
    std::string event;          ///< the name of the event that it wants
    std::uint64_t context = 0;  ///< handed back with every event
    BusCallback callback = nullptr;
};

/// Reads a registration record of 120 bytes; nothing when one of its fixed values is wrong, a
/// name or a callback is missing, the two callbacks differ, or a field without a meaning is set.
std::optional<ConsumerRecord> ReadConsumerRecord(const void* record);

/// Writes the handle into a registration record.
void WriteHandle(void* record, std::uint64_t handle);

/// The records of one event as a callback sees them: the event block, the event data that it
/// points to, and the names that these point to. Stays where it is while a callback runs.
class EventRecords {
  public:
    /// The records of `event` for the consumer that registered with `context`.
    EventRecords(const BusEvent& event, std::uint64_t context);
    EventRecords(const EventRecords&) = delete;
    EventRecords& operator=(const EventRecords&) = delete;
    ~EventRecords() = default;

    /// The event block, to be handed to a callback.
    void* Block() { return block_.data(); }

    /// What the consumer wrote as the reason of its refusal; 0 at first.
    std::uint64_t RefusalStatus() const;

  private:
    alignas(16) std::array<std::byte, 128> block_{};
    alignas(16) std::array<std::byte, 128> data_{};
    std::vector<char16_t> oldName_;
    std::vector<char16_t> newName_;
};

}  // namespace sim
