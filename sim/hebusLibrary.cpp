#include <cstdint>
#include <exception>

#include "sim/busClient.h"
#include "sim/busRecords.h"
#include "sim/neverDestroyed.h"
#include "sim/statuses.h"

namespace {

sim::BusClient& Client() {
    static sim::NeverDestroyed<sim::BusClient> client;
    return *client;
}

unsigned long Register(void* record, const char* event, const char* consumer, unsigned long flags) {
    if (record == nullptr || event == nullptr || consumer == nullptr || flags != 0) {
        return sim::kBadParameter;
    }
    const auto read = sim::ReadConsumerRecord(record);
    if (!read || read->event != event || read->consumer != consumer) {
        return sim::kBadParameter;
    }
    const auto result = Client().Register(*read);
    if (result.status == 0) {
        sim::WriteHandle(record, result.handle);
    }
    return result.status;
}

}  // namespace

extern "C" {

/// Registers the consumer that the 120-byte record describes and writes the registration's handle
/// into the record. The low 32 bits of the result are the status.
[[gnu::visibility("default")]] unsigned long userHebRegisterConsumer(void* record,
                                                                     const char* eventName,
                                                                     const char* consumerName,
                                                                     unsigned long flags) {
    try {
        return Register(record, eventName, consumerName, flags);
    } catch (const std::exception&) {  // out of memory or threads
        return sim::kGenericError;
    }
}

/// Removes a registration. It does not wait for an event that is with the consumer just now.
[[gnu::visibility("default")]] unsigned long userHebUnRegisterConsumer(unsigned long long handle,
                                                                       void* context) {
    try {
        return Client().Unregister(handle, reinterpret_cast<std::uintptr_t>(context));
    } catch (const std::exception&) {
        return sim::kGenericError;
    }
}

}  // extern "C"
