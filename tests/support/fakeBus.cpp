#include "tests/support/fakeBus.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

template <typename Value>
Value Peek(const unsigned char* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

template <typename Value>
void Poke(unsigned char* bytes, std::size_t offset, const Value& value) {
    std::memcpy(bytes + offset, &value, sizeof value);
}

using Callback = std::uint32_t (*)(void* event);

}  // namespace

FakeBus& FakeBus::Instance() {
    static FakeBus bus;
    return bus;
}

FakeBus& FakeBus::Fresh() {
    FakeBus& bus = Instance();
    bus.registerResult = 0;
    bus.unregisterResult = 0;
    bus.duringRegistration = nullptr;
    bus.registered.clear();
    bus.unregisteredHandles.clear();
    bus.unregisteredContexts.clear();
    return bus;
}

std::future<FakeBus::Delivery> FakeBus::Deliver(const Registration& registration,
                                                std::vector<unsigned char> eventData,
                                                std::uint32_t notifyType) {
    const auto* record = registration.record.data();
    const auto call = Peek<Callback>(record, 48);
    void* context = Peek<void*>(record, 24);
    return std::async(std::launch::async, [=, data = std::move(eventData)] {
        // Heap blocks of the exact size, so that a sanitizer sees what is read beyond them.
        std::vector<unsigned char> event(120);
        Poke(event.data(), 64, data.empty() ? nullptr : data.data());
        Poke(event.data(), 88, notifyType);
        Poke(event.data(), 96, context);
        const std::uint32_t answer = call(event.data());
        return Delivery{answer, Peek<std::uint64_t>(event.data(), 112)};
    });
}

unsigned long FakeBus::Register(void* record, const char* eventName, const char* consumerName,
                                unsigned long flags) {
    if (registerResult != 0) {
        return registerResult;
    }
    auto* bytes = static_cast<unsigned char*>(record);
    Registration made{{},
                      eventName,
                      consumerName,
                      Peek<const char*>(bytes, 16),
                      Peek<const char*>(bytes, 8),
                      flags,
                      nextHandle_++};
    std::copy_n(bytes, made.record.size(), made.record.begin());
    if (duringRegistration) {
        duringRegistration(made);
    }
    Poke(bytes, 112, made.handle);
    registered.push_back(std::move(made));
    return 0;
}

unsigned long FakeBus::Unregister(std::uint64_t handle, void* context) {
    unregisteredHandles.push_back(handle);
    unregisteredContexts.push_back(context);
    if (unregisterResult != 0) {
        return unregisterResult;
    }
    std::erase_if(registered, [=](const Registration& made) { return made.handle == handle; });
    return 0;
}

std::vector<unsigned char> StateChange(const GUID_t& guid, std::uint16_t from, std::uint16_t to,
                                       std::uint64_t modeFlags) {
    std::vector<unsigned char> data(40);
    Poke(data.data(), 8, from);
    Poke(data.data(), 10, to);
    Poke(data.data(), 16, modeFlags);
    Poke(data.data(), 24, guid);
    return data;
}

std::vector<unsigned char> Rename(const GUID_t& guid, const char16_t* oldName,
                                  const char16_t* newName) {
    std::vector<unsigned char> data(72);
    Poke(data.data(), 24, guid);
    Poke(data.data(), 56, oldName);
    Poke(data.data(), 64, newName);
    return data;
}

std::vector<unsigned char> Identity(const GUID_t& guid, const GUID_t& newGuid) {
    std::vector<unsigned char> data(56);
    Poke(data.data(), 24, guid);
    Poke(data.data(), 40, newGuid);
    return data;
}

extern "C" {

unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags);
unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags) {
    return FakeBus::Instance().Register(record, eventName, consumerName, flags);
}

unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context);
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context) {
    return FakeBus::Instance().Unregister(handle, context);
}
}
