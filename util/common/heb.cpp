#include "util/common/heb.h"

#include <dlfcn.h>

#include <bit>
#include <mutex>
#include <set>
#include <stdexcept>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/neverDestroyed.h"

// The bus library is closed and comes with the service: the tool runs where it is absent.
extern "C" {
unsigned long userHebRegisterConsumer(void* record, const char* eventName, const char* consumerName,
                                      unsigned long flags) __attribute__((weak));
unsigned long userHebUnRegisterConsumer(unsigned long long handle, void* context)
    __attribute__((weak));
}

namespace {

/// The bus library's own record of a registration.
struct RegistrationRecord {
    std::uint32_t one = 1;
    unsigned char reserved4[4] = {};
    const char* consumerName = nullptr;
    const char* eventName = nullptr;
    HEBConsumer* context = nullptr;
    unsigned char reserved32[16] = {};
    HEBCallback callback = nullptr;
    unsigned char reserved56[40] = {};
    HEBCallback callbackAgain = nullptr;
    std::uint32_t three = 3;
    unsigned char reserved108[4] = {};
    std::uint64_t handle = 0;  // out
};
static_assert(offsetof(RegistrationRecord, consumerName) == 8);
static_assert(offsetof(RegistrationRecord, eventName) == 16);
static_assert(offsetof(RegistrationRecord, context) == 24);
static_assert(offsetof(RegistrationRecord, callback) == 48);
static_assert(offsetof(RegistrationRecord, callbackAgain) == 96);
static_assert(offsetof(RegistrationRecord, three) == 104);
static_assert(offsetof(RegistrationRecord, handle) == 112);
static_assert(sizeof(RegistrationRecord) == 120);

struct EntryPoints {
    decltype(&userHebRegisterConsumer) registerConsumer = nullptr;
    decltype(&userHebUnRegisterConsumer) unregisterConsumer = nullptr;

    bool Complete() const { return registerConsumer != nullptr && unregisterConsumer != nullptr; }
};

/// The library stays open for the process's life: its threads may be in it at any time. What could
/// not be found is looked for again at the next call, with the loader's reason in the log.
EntryPoints FindEntryPoints() {
    static std::mutex mutex;
    static EntryPoints found{userHebRegisterConsumer, userHebUnRegisterConsumer};
    const std::lock_guard lock(mutex);
    if (found.Complete()) {
        return found;
    }
    if (void* library = dlopen("libhebus.so", RTLD_NOW | RTLD_LOCAL); library != nullptr) {
        found.registerConsumer = reinterpret_cast<decltype(found.registerConsumer)>(
            dlsym(library, "userHebRegisterConsumer"));
        found.unregisterConsumer = reinterpret_cast<decltype(found.unregisterConsumer)>(
            dlsym(library, "userHebUnRegisterConsumer"));
    }
    if (!found.Complete()) {
        const char* reason = dlerror();
        LogLine() << "util/common/heb[118] Could not load libhebus because of \""
                  << (reason != nullptr ? reason : "") << "\"\n";
    }
    return found;
}

/// A copy for the process's life, since a registration that the bus does not let go may point to
/// its names as long.
const char* KeptName(const std::string& name) {
    static std::mutex mutex;
    static NeverDestroyed<std::set<std::string>> names;
    const std::lock_guard lock(mutex);
    return names->insert(name).first->c_str();
}

/// The bus answers in a wider word than its statuses have; above them it may leave anything.
std::uint32_t LowStatus(unsigned long result) {
    return static_cast<std::uint32_t>(result & 0xFFFFFFFF);
}

}  // namespace

HEBKey* HaldenEventBus::EventRegister(const std::string& eventName, const std::string& consumerName,
                                      HEBConsumer* context, HEBCallback callback) {
    // Made before the bus is told: behind a registration nothing may fail that would forget it.
    auto key = std::make_unique<HEBKey>(HEBKey{eventName, consumerName});
    RegistrationRecord record;
    record.consumerName = KeptName(consumerName);
    record.eventName = KeptName(eventName);
    record.context = context;
    record.callback = callback;
    record.callbackAgain = callback;
    const EntryPoints bus = FindEntryPoints();
    if (!bus.Complete() ||
        LowStatus(bus.registerConsumer(&record, record.eventName, record.consumerName, 0)) != 0) {
        throw std::runtime_error("HEB register error");
    }
    key->handle = record.handle;
    key->context = std::bit_cast<std::uint64_t>(context);
    return key.release();
}

void HaldenEventBus::EventUnregister(HEBKey* key) {
    // Freed whatever the bus says: a refused handle is nothing that could be tried again.
    const std::unique_ptr<HEBKey> owned(key);
    if (owned == nullptr) {
        throw std::runtime_error("Key is null");
    }
    if (owned->handle == 0) {
        return;
    }
    const EntryPoints bus = FindEntryPoints();
    const std::uint32_t status =
        bus.Complete()
            ? LowStatus(bus.unregisterConsumer(owned->handle, std::bit_cast<void*>(owned->context)))
            : zERR_GENERIC_OSTREL_ERROR;
    if (status != 0) {
        LogLine() << "Could not unregister with HEB.  HEN returned status " << status << '\n';
        throw std::runtime_error("Could not unregister with HEB");
    }
}
