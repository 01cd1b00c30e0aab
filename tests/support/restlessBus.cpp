// A bus library that never leaves its consumer alone: it delivers a forced change of the pool's
// state while the registration is not complete yet, again while it is being taken away, and from
// then on every millisecond, as long as the process lives. Each must be let pass: a call of the two
// entry points fails otherwise.

#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>

namespace {

constexpr unsigned char kGuid[16] = {0x67, 0x45, 0x23, 0x01, 0xab, 0x89, 0xde, 0x0c,
                                     0x8f, 0x10, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
constexpr unsigned long long kHandle = 0x4711;

using Callback = std::uint32_t (*)(void* event);

struct Consumer {
    Callback callback;
    void* context;
};

Consumer registered;

template <typename Value>
void Put(unsigned char* bytes, std::size_t offset, const Value& value) {
    std::memcpy(bytes + offset, &value, sizeof value);
}

template <typename Value>
Value Take(const void* bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const unsigned char*>(bytes) + offset, sizeof value);
    return value;
}

/// Whether the consumer lets a change from 3 to 6 pass that cannot be refused.
bool LetsPass(const Consumer& consumer) {
    unsigned char data[40] = {};
    Put(data, 8, std::uint16_t{3});
    Put(data, 10, std::uint16_t{6});
    std::memcpy(data + 24, kGuid, sizeof kGuid);
    unsigned char block[120] = {};
    Put(block, 64, static_cast<const void*>(data));
    Put(block, 88, std::uint32_t{9});
    Put(block, 96, consumer.context);
    return consumer.callback(block) == 0 && Take<std::uint64_t>(block, 112) == 0;
}

bool LetsPassOnAThread(const Consumer& consumer) {
    bool passed = false;
    std::thread([&] { passed = LetsPass(consumer); }).join();
    return passed;
}

}  // namespace

extern "C" {

unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags);
unsigned long userHebRegisterConsumer(void* record, const char* /*eventName*/,
                                      const char* /*consumerName*/, unsigned long /*flags*/) {
    registered = {Take<Callback>(record, 48), Take<void*>(record, 24)};
    if (!LetsPassOnAThread(registered)) {
        return 1;
    }
    Put(static_cast<unsigned char*>(record), 112, kHandle);
    return 0;
}

unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context);
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context) {
    if (handle != kHandle || context != registered.context || !LetsPassOnAThread(registered)) {
        return 2;
    }
    std::thread([consumer = registered] {
        for (;;) {
            LetsPass(consumer);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }).detach();
    return 0;
}
}
