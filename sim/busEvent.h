#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim/guidText.h"
#include "sim/wire.h"

namespace sim {

/// The events that the service announces.
constexpr std::array<std::string_view, 9> kEventNames = {
    "OSTREL.ChangePoolState.Enter", "OSTREL.ChangeVolState.Enter", "OSTREL.PoolRename.Enter",
    "OSTREL.LVolumeRename.Enter",   "OSTREL.LVolumeRename.Exit",   "OSTREL.LVolumeDelete.Enter",
    "OSTREL.LVolumeDelete.Exit",    "OSTREL.LVolZID64.Enter",      "OSTREL.LVolZID64.Exit"};

/// Whether the service announces an event of that name.
bool IsKnownEvent(std::string_view name);

/// The notify type of all these events.
constexpr std::uint32_t kNotifyEvent = 9;

/// Mode flag of a change that a consumer may refuse.
constexpr std::uint64_t kUserAbortable = 8;

/// The answer of a consumer that refuses.
constexpr std::uint32_t kVeto = 0xFFFF00;

/// One event of the bus. State changes use the states and the mode, renames the two names, a
/// finished deletion the new GUID.
struct BusEvent {
    std::string name;
    std::uint32_t notifyType = kNotifyEvent;
    std::uint16_t oldState = 0;
    std::uint16_t newState = 0;
    std::uint64_t mode = 0;  ///< flags, such as `kUserAbortable`
    Guid guid{};             ///< of the pool or volume that it is about
    Guid newGuid{};
    std::string oldName{};
    std::string newName{};
};

/// A message that delivers `event` to the registration `handle`; the answer names the `delivery`.
Message MessageOfEvent(std::uint64_t delivery, std::uint64_t handle, const BusEvent& event);

/// What such a message says.
struct DeliveredEvent {
    std::uint64_t delivery = 0;
    std::uint64_t handle = 0;
    BusEvent event;
};

/// Reads a message of `MessageOfEvent`; nothing for one of another shape.
std::optional<DeliveredEvent> EventOfMessage(const Message& message);

}  // namespace sim
