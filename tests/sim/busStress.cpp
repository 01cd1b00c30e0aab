// Registers and unregisters on several threads while events arrive, until it has made so many
// registrations and seen so many events as its arguments say; then prints how many of both it were.
// Ends with 1 when a call fails or an event reaches a registration that was removed before.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
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
    std::atomic<int> eventsAfterRemoval{0};
};

/// One for each registration, for as long as the process lives: the bus may be on its way to any.
std::array<Context, 100'000> contexts;
std::atomic<std::size_t> usedContexts{0};

std::atomic<long> registered{0};
std::atomic<long> delivered{0};
std::atomic<bool> failed{false};

template <typename Value>
void Store(std::array<char, 120>& record, std::size_t offset, const Value& value) {
    std::memcpy(record.data() + offset, &value, sizeof value);
}

std::uint32_t OnEvent(void* block) {
    Context* context = nullptr;
    std::memcpy(&context, static_cast<const char*>(block) + 96, sizeof(void*));
    // The one that was on its way when the registration was removed may still come, and no other:
    // the library delivers one event after the other.
    if (context->removed && ++context->eventsAfterRemoval > 1) {
        failed = true;
    }
    ++delivered;
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

struct Goal {
    long registrations = 0;
    long events = 0;

    bool IsReached() const {
        return failed || (registered >= registrations && delivered >= events);
    }
};

void Work(const Goal& goal) {
    while (!goal.IsReached()) {
        const std::size_t next = usedContexts++;
        if (next >= contexts.size()) {
            return;
        }
        Context& context = contexts.at(next);
        const unsigned long long handle = Register(context);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const unsigned long status = userHebUnRegisterConsumer(handle, &context);
        context.removed = true;
        if (handle == 0 || (status & 0xFFFFFFFF) != 0) {
            failed = true;
        }
        ++registered;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: bus_stress REGISTRATIONS EVENTS\n";
        return EXIT_FAILURE;
    }
    const Goal goal{std::strtol(argv[1], nullptr, 10), std::strtol(argv[2], nullptr, 10)};
    std::array<std::thread, 3> threads;
    for (std::thread& thread : threads) {
        thread = std::thread(Work, std::cref(goal));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout << registered << " " << delivered << "\n";
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
