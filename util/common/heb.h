#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "util/common/hebEvent.h"
#include "util/common/hebFamilies.h"
#include "util/common/pvKey.h"

class HEBConsumer;

/// One registration with the bus.
struct HEBKey {
    std::string eventName;
    std::string consumerName;
    std::uint64_t handle = 0;   ///< 0 when not registered
    std::uint64_t context = 0;  ///< the `HEBConsumer`, as the bus knows it
};

/// The bus library's two entry points. They come from the process where it has them and from
/// libhebus otherwise, which is opened at the first registration. Stateless: any thread may call
/// it.
class HaldenEventBus {
  public:
    /// Returns a new key, which is the caller's until `EventUnregister` takes it back. Throws
    /// std::runtime_error when the bus refuses or is not there.
    HEBKey* EventRegister(const std::string& eventName, const std::string& consumerName,
                          HEBConsumer* context, HEBCallback callback);

    /// Unregisters and frees the key. Throws std::runtime_error without a key, and when the bus
    /// refuses or is not there; the key is freed then too.
    void EventUnregister(HEBKey* key);
};

/// A flag that the bus's thread sets and its owner polls. It is shared, since an event may still be
/// held up when the owner is gone.
using HEBChangeFlag = std::shared_ptr<std::atomic<bool>>;

/// The tool's consumer on the bus. Each family is registered and unregistered by the owner's thread
/// and handled on the bus's; registering twice, and unregistering what is not registered, return
/// `zERR_INVALID_STATE`. Its destructor unregisters nothing: it lets the handlers at work go and
/// waits for them, but an event that the bus delivers later would find nobody. So owners unregister
/// first, and one that cannot be sure that the bus has let go hands the consumer to `Retire`.
class HEBConsumer {
    using enum HEBFamily;

  public:
    explicit HEBConsumer(const char* name);
    ~HEBConsumer();
    HEBConsumer(const HEBConsumer&) = delete;
    HEBConsumer& operator=(const HEBConsumer&) = delete;

    /// Destroys the consumer if the bus never knew it. One that was ever registered is kept for the
    /// process's life, since the bus may deliver an event late; it answers those as early ones. A
    /// handler that was released is given the time to answer, so that the service hears of it even
    /// when the process ends now; a bus that is stuck is not waited for.
    static void Retire(std::unique_ptr<HEBConsumer> consumer);

    /// From here on retired consumers answer without a line in the log: for the end of a run, which
    /// takes the log away while the bus may still deliver. Handlers at work are waited for as
    /// `Retire` does.
    static void SilenceRetired();

    /// As the bus knows it.
    const std::string& Name() const { return name_; }

    // Each family has its four names: `Register` watches a pool or a volume, the static `Callback`
    // is what the bus calls, and `Handler` answers the event.

    // Pool state: a change that may be refused is; any other is held up, with the flag set, until
    // the flag is cleared or the family is unregistered. A flag that is not shared is its owner's,
    // who keeps it alive as long as the process may get events.
    int HEBC_CPSE_Register(const PoolKey& key, HEBChangeFlag changeRequired) {
        return Register(CPSE, HEBC_CPSE_Callback, key, std::move(changeRequired));
    }
    int HEBC_CPSE_Register(const PoolKey& key, std::atomic<bool>* changeRequired) {
        return Register(CPSE, HEBC_CPSE_Callback, key, Borrowed(changeRequired));
    }
    int HEBC_CPSE_Unregister() { return Unregister(CPSE); }
    /// Whether the family is registered, as its owner's thread left it.
    bool HEBC_CPSE_IsRegistered() const { return IsRegistered(CPSE); }
    static std::uint32_t HEBC_CPSE_Callback(EventBlock* event) { return Deliver<CPSE>(event); }
    std::uint32_t HEBC_CPSE_Handler(EventBlock* event) { return Handle(CPSE, event); }

    // Volume state: as pool state.
    int HEBC_CVSE_Register(const VolumeKey& key, HEBChangeFlag changeRequired) {
        return Register(CVSE, HEBC_CVSE_Callback, key, std::move(changeRequired));
    }
    int HEBC_CVSE_Register(const VolumeKey& key, std::atomic<bool>* changeRequired) {
        return Register(CVSE, HEBC_CVSE_Callback, key, Borrowed(changeRequired));
    }
    int HEBC_CVSE_Unregister() { return Unregister(CVSE); }
    static std::uint32_t HEBC_CVSE_Callback(EventBlock* event) { return Deliver<CVSE>(event); }
    std::uint32_t HEBC_CVSE_Handler(EventBlock* event) { return Handle(CVSE, event); }

    // The others only log what they see.
    int HEBC_PR_Register(const PoolKey& key) { return Register(PR, HEBC_PR_Callback, key); }
    int HEBC_PR_Unregister() { return Unregister(PR); }
    static std::uint32_t HEBC_PR_Callback(EventBlock* event) { return Deliver<PR>(event); }
    std::uint32_t HEBC_PR_Handler(EventBlock* event) { return Handle(PR, event); }

    int HEBC_VR_Register(const VolumeKey& key) { return Register(VR, HEBC_VR_Callback, key); }
    int HEBC_VR_Unregister() { return Unregister(VR); }
    static std::uint32_t HEBC_VR_Callback(EventBlock* event) { return Deliver<VR>(event); }
    std::uint32_t HEBC_VR_Handler(EventBlock* event) { return Handle(VR, event); }

    int HEBC_VRX_Register(const VolumeKey& key) { return Register(VRX, HEBC_VRX_Callback, key); }
    int HEBC_VRX_Unregister() { return Unregister(VRX); }
    static std::uint32_t HEBC_VRX_Callback(EventBlock* event) { return Deliver<VRX>(event); }
    std::uint32_t HEBC_VRX_Handler(EventBlock* event) { return Handle(VRX, event); }

    int HEBC_VD_Register(const VolumeKey& key) { return Register(VD, HEBC_VD_Callback, key); }
    int HEBC_VD_Unregister() { return Unregister(VD); }
    static std::uint32_t HEBC_VD_Callback(EventBlock* event) { return Deliver<VD>(event); }
    std::uint32_t HEBC_VD_Handler(EventBlock* event) { return Handle(VD, event); }

    int HEBC_VDX_Register(const VolumeKey& key) { return Register(VDX, HEBC_VDX_Callback, key); }
    int HEBC_VDX_Unregister() { return Unregister(VDX); }
    static std::uint32_t HEBC_VDX_Callback(EventBlock* event) { return Deliver<VDX>(event); }
    std::uint32_t HEBC_VDX_Handler(EventBlock* event) { return Handle(VDX, event); }

    int HEBC_ZID64E_Register(const VolumeKey& key) {
        return Register(ZID64E, HEBC_ZID64E_Callback, key);
    }
    int HEBC_ZID64E_Unregister() { return Unregister(ZID64E); }
    static std::uint32_t HEBC_ZID64E_Callback(EventBlock* event) { return Deliver<ZID64E>(event); }
    std::uint32_t HEBC_ZID64E_Handler(EventBlock* event) { return Handle(ZID64E, event); }

    int HEBC_ZID64X_Register(const VolumeKey& key) {
        return Register(ZID64X, HEBC_ZID64X_Callback, key);
    }
    int HEBC_ZID64X_Unregister() { return Unregister(ZID64X); }
    static std::uint32_t HEBC_ZID64X_Callback(EventBlock* event) { return Deliver<ZID64X>(event); }
    std::uint32_t HEBC_ZID64X_Handler(EventBlock* event) { return Handle(ZID64X, event); }

  private:
    /// What one registration watches. It never changes but for the flags, and lives as long as the
    /// consumer, so a handler may go on reading it after the family was registered anew.
    struct Registration {
        Registration(const PVKey& key, HEBChangeFlag flag)
            : watched(key), changeRequired(std::move(flag)) {}

        /// Sets the owner's flag, unless the registration has ended: then the flag may be a later
        /// one's already.
        void RequireChange();
        /// False when it had ended before.
        bool End();

        const PVKey watched;
        const HEBChangeFlag changeRequired;
        std::atomic<bool> registered{true};
        std::mutex ending;  ///< held by `RequireChange` and `End`
    };

    struct Slots {
        std::unique_ptr<HEBKey> key;
        std::vector<std::unique_ptr<Registration>> registrations;
        std::atomic<Registration*> current{nullptr};  ///< the last of them
    };

    template <HEBFamily family>
    static std::uint32_t Deliver(EventBlock* event) {
        return static_cast<HEBConsumer*>(event->context)->Handle(family, event);
    }
    static HEBChangeFlag Borrowed(std::atomic<bool>* flag) { return {HEBChangeFlag(), flag}; }
    int Register(HEBFamily family, HEBCallback callback, const PVKey& key,
                 HEBChangeFlag changeRequired = nullptr);
    int Unregister(HEBFamily family);
    bool IsRegistered(HEBFamily family) const;
    std::uint32_t Handle(HEBFamily family, EventBlock* event);
    std::uint32_t Answer(HEBFamily family, EventBlock* event);
    static std::uint32_t HandleChange(const HEBFamilyFacts& facts, Registration& registration,
                                      EventBlock* event);
    void ReleaseHandlers();
    void AwaitHandlers() const;

    const std::string name_;
    HaldenEventBus bus_;
    std::array<Slots, kHEBFamilies> slots_;
    bool offeredToBus_ = false;
    std::atomic<int> handling_{0};  ///< handlers at work
    std::atomic<bool> silent_{false};
    std::unique_ptr<HEBConsumer> retiredBefore_;  // by `Retire`
};
