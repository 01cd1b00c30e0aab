// Registers and unregisters on several threads for a number of seconds while events arrive, then
// prints how many registrations it made and how many events it saw. Ends with 1 when a call fails
// or an event reaches a registration that was removed before.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

extern "C" {
unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags);
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context);
}

namespace {

constexpr const char* kEvent = "OSTREL.ChangePoolState.Enter";
constexpr const char* kConsumer = "Stress";

struct Context {
    std::atomic<bool> removed{false};
    std::atomic<bool> late{false};
    std::atomic<long> events{0};
};

template <typename Value>
void Store(std::array<char, 120>& record, std::size_t offset, const Value& value) {
    std::memcpy(record.data() + offset, &value, sizeof value);
}

std::uint32_t OnEvent(void* block) {
    Context* context = nullptr;
    std::memcpy(&context, static_cast<const char*>(block) + 96, sizeof(void*));
    if (context->removed) {
        context->late = true;
    }
    ++context->events;
    return 0;
}

unsigned long long Register(Context& context) {
    std::array<char, 120> record{};
    Store(record, 0, std::uint32_t{1});
    Store(record, 8, reinterpret_cast<std::uintptr_t>(kConsumer));
    Store(record, 16, reinterpret_cast<std::uintptr_t>(kEvent));
    Store(record, 24, reinterpret_cast<std::uintptr_t>(&context));
    Store(record, 48, &OnEvent);
    Store(record, 96, &OnEvent);
    Store(record, 104, std::uint32_t{3});
    unsigned long long handle = 0;
    if ((userHebRegisterConsumer(record.data(), kEvent, kConsumer, 0) & 0xFFFFFFFF) == 0) {
        std::memcpy(&handle, record.data() + 112, sizeof handle);
    }
    return handle;
}

std::atomic<long> registered{0};
std::atomic<long> delivered{0};
std::atomic<bool> failed{false};

void Work(std::chrono::steady_clock::time_point end) {
    while (std::chrono::steady_clock::now() < end) {
        Context context;
        const unsigned long long handle = Register(context);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const unsigned long status = userHebUnRegisterConsumer(handle, &context);
        // An event that was with the consumer when it was removed may still be on its way out.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        context.removed = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        failed = failed || handle == 0 || (status & 0xFFFFFFFF) != 0 || context.late;
        delivered += context.events;
        ++registered;
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::seconds(argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1);
    std::array<std::thread, 3> threads;
    for (std::thread& thread : threads) {
        thread = std::thread(Work, end);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout << registered << " " << delivered << "\n";
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
