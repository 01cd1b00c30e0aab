#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "util/common/guid.h"

/// Stands in for the bus library in this program: keeps what was registered and delivers events on
/// threads of its own. It knows records and events by their offsets alone.
class FakeBus {
  public:
    struct Registration {
        std::array<unsigned char, 120> record;
        std::string eventName;
        std::string consumerName;
        std::string recordEventName;
        std::string recordConsumerName;
        unsigned long flags;
        std::uint64_t handle;

        /// The record's field at that offset.
        template <typename Value>
        Value At(std::size_t offset) const {
            Value value;
            std::memcpy(&value, record.data() + offset, sizeof value);
            return value;
        }
    };

    struct Delivery {
        std::uint32_t answer;
        std::uint64_t refusalStatus;
    };

    /// The bus of this program, with nothing registered and nothing refused.
    static FakeBus& Fresh();
    static FakeBus& Instance();

    // Results of the next calls.
    unsigned long registerResult = 0;
    unsigned long unregisterResult = 0;
    /// Called in the middle of a registration, before it is complete.
    std::function<void(const Registration&)> duringRegistration;

    std::vector<Registration> registered;
    std::vector<std::uint64_t> unregisteredHandles;
    std::vector<void*> unregisteredContexts;

    /// Calls a registration's callback with that event data on a thread of its own.
    static std::future<Delivery> Deliver(const Registration& registration,
                                         std::vector<unsigned char> eventData,
                                         std::uint32_t notifyType = 9);

    unsigned long Register(void* record, const char* eventName, const char* consumerName,
                           unsigned long flags);
    unsigned long Unregister(std::uint64_t handle, void* context);

  private:
    std::uint64_t nextHandle_ = 0x7100000001;
};

/// Event data of a state change.
std::vector<unsigned char> StateChange(const GUID_t& guid, std::uint16_t from, std::uint16_t to,
                                       std::uint64_t modeFlags);

/// Event data with that GUID at its place, and two names or a second GUID behind it.
std::vector<unsigned char> Rename(const GUID_t& guid, const char16_t* oldName,
                                  const char16_t* newName);
std::vector<unsigned char> Identity(const GUID_t& guid, const GUID_t& newGuid);
