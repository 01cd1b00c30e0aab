#include "sim/busEvent.h"

#include <algorithm>

#include "sim/textTools.h"

namespace sim {

bool IsKnownEvent(std::string_view name) {
    return std::find(kEventNames.begin(), kEventNames.end(), name) != kEventNames.end();
}

Message MessageOfEvent(std::uint64_t delivery, std::uint64_t handle, const BusEvent& event) {
    return {"event",
            std::to_string(delivery),
            std::to_string(handle),
            event.name,
            std::to_string(event.notifyType),
            std::to_string(event.oldState),
            std::to_string(event.newState),
            std::to_string(event.mode),
            TextOfGuid(event.guid),
            TextOfGuid(event.newGuid),
            event.oldName,
            event.newName};
}

std::optional<DeliveredEvent> EventOfMessage(const Message& message) {
    if (message.size() != 12 || message[0] != "event") {
        return std::nullopt;
    }
    const auto guid = GuidFromText(message[8]);
    const auto newGuid = GuidFromText(message[9]);
    std::array<std::uint64_t, 6> numbers{};
    constexpr std::array<std::size_t, 6> kNumberWords = {1, 2, 4, 5, 6, 7};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto number = ToNumber(message[kNumberWords.at(i)]);
        if (!number || !guid || !newGuid) {
            return std::nullopt;
        }
        numbers.at(i) = *number;
    }
    return DeliveredEvent{
        numbers[0],
        numbers[1],
        {message[3], static_cast<std::uint32_t>(numbers[2]), static_cast<std::uint16_t>(numbers[3]),
         static_cast<std::uint16_t>(numbers[4]), numbers[5], *guid, *newGuid, message[10],
         message[11]}};
}

}  // namespace sim
