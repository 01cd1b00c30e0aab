#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "util/common/guid.h"
#include "util/common/pvKey.h"

/// An event as the bus hands it to a callback. The layout is the bus library's.
struct EventBlock {
    unsigned char reserved0[64];
    const void* eventData;
    unsigned char reserved72[16];
    std::uint32_t notifyType;
    unsigned char reserved92[4];
    void* context;  ///< the `HEBConsumer` of the registration
    unsigned char reserved104[8];
    std::uint64_t refusalStatus;  ///< out: set by a consumer that vetoes
};
static_assert(offsetof(EventBlock, eventData) == 64);
static_assert(offsetof(EventBlock, notifyType) == 88);
static_assert(offsetof(EventBlock, context) == 96);
static_assert(offsetof(EventBlock, refusalStatus) == 112);
static_assert(sizeof(EventBlock) == 120);

/// The notify type of the events that are acted on.
inline constexpr std::uint32_t kEBEventNotifyType = 9;
/// What a handler answers to let an event pass, and to veto it.
inline constexpr std::uint32_t kHEBAccept = 0;
inline constexpr std::uint32_t kHEBVeto = 0xFFFF00;

/// Event data of a state change. Every family's data carries the GUID at the same place.
struct HEBStateChange {
    unsigned char reserved0[8];
    std::uint16_t stateA;  ///< only the equality of the two states is known to matter
    std::uint16_t stateB;
    unsigned char reserved12[4];
    std::uint64_t modeFlags;
    GUID_t guid;
};
static_assert(offsetof(HEBStateChange, stateA) == 8);
static_assert(offsetof(HEBStateChange, stateB) == 10);
static_assert(offsetof(HEBStateChange, modeFlags) == 16);
static_assert(offsetof(HEBStateChange, guid) == 24);
static_assert(sizeof(HEBStateChange) == 40);

/// Mode flag: the change may be refused.
inline constexpr std::uint64_t VOLMODE_USER_ABORTABLE = 8;

/// Event data of a rename; the names are UTF-16 texts or null.
struct HEBRename {
    unsigned char reserved0[24];
    GUID_t guid;
    unsigned char reserved40[16];  ///< where a deletion has its new GUID
    const char16_t* oldName;
    const char16_t* newName;
};
static_assert(offsetof(HEBRename, guid) == 24 && offsetof(HEBRename, oldName) == 56);

/// Event data of a deletion and of a change of identifiers; a finished deletion has the new GUID.
struct HEBIdentity {
    unsigned char reserved0[24];
    GUID_t guid;
    GUID_t newGuid;
};
static_assert(offsetof(HEBIdentity, guid) == 24 && offsetof(HEBIdentity, newGuid) == 40);

class HEBConsumer;

/// Called on the bus's own thread; returns the consumer's answer.
using HEBCallback = std::uint32_t (*)(EventBlock* event);

/// One registration with the bus.
struct HEBKey {
    std::string eventName;
    std::string consumerName;
    std::uint64_t handle = 0;   ///< 0 when not registered
    std::uint64_t context = 0;  ///< the `HEBConsumer`, as the bus knows it
};

/// The bus library's two entry points. They come from the process where it has them and from
/// libhebus otherwise, which is opened at the first registration.
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

/// The registration families, one for each event that a consumer knows.
enum class HEBFamily : unsigned { CPSE, CVSE, PR, VR, VRX, VD, VDX, ZID64E, ZID64X };
inline constexpr std::size_t kHEBFamilies = 9;

struct HEBFamilyFacts;

/// A flag that the bus's thread sets and its owner polls. It is shared, since an event may still be
/// held up when the owner is gone.
using HEBChangeFlag = std::shared_ptr<std::atomic<bool>>;

/// The tool's consumer on the bus. Each family is registered and unregistered by the owner's thread
/// and handled on the bus's; registering twice, and unregistering what is not registered, return
/// `zERR_INVALID_STATE`. Its destructor unregisters nothing: owners unregister first, and an owner
/// that cannot be sure that the bus has let go hands the consumer to `Retire`.
class HEBConsumer {
    using enum HEBFamily;

  public:
    explicit HEBConsumer(const char* name);
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

    const std::string& Name() const { return name_; }

    // Each family has its four names: `Register` watches a pool or a volume, the static `Callback`
    // is what the bus calls, and `Handler` answers the event.

    // Pool state: a change that may be refused is; any other is held up, with the flag set, until
    // the flag is cleared or the family is unregistered. A flag that is not shared is its owner's,
    // who keeps it alive as long as the process may get events.
    int HEBC_CPSE_Register(const PoolKey& key, HEBChangeFlag changeRequired) {
        return Register(CPSE, key, std::move(changeRequired));
    }
    int HEBC_CPSE_Register(const PoolKey& key, std::atomic<bool>* changeRequired) {
        return Register(CPSE, key, Borrowed(changeRequired));
    }
    int HEBC_CPSE_Unregister() { return Unregister(CPSE); }
    static std::uint32_t HEBC_CPSE_Callback(EventBlock* event) { return Deliver<CPSE>(event); }
    std::uint32_t HEBC_CPSE_Handler(EventBlock* event) { return Handle(CPSE, event); }

    // Volume state: as pool state.
    int HEBC_CVSE_Register(const VolumeKey& key, HEBChangeFlag changeRequired) {
        return Register(CVSE, key, std::move(changeRequired));
    }
    int HEBC_CVSE_Register(const VolumeKey& key, std::atomic<bool>* changeRequired) {
        return Register(CVSE, key, Borrowed(changeRequired));
    }
    int HEBC_CVSE_Unregister() { return Unregister(CVSE); }
    static std::uint32_t HEBC_CVSE_Callback(EventBlock* event) { return Deliver<CVSE>(event); }
    std::uint32_t HEBC_CVSE_Handler(EventBlock* event) { return Handle(CVSE, event); }

    // The others only log what they see.
    int HEBC_PR_Register(const PoolKey& key) { return Register(PR, key); }
    int HEBC_PR_Unregister() { return Unregister(PR); }
    static std::uint32_t HEBC_PR_Callback(EventBlock* event) { return Deliver<PR>(event); }
    std::uint32_t HEBC_PR_Handler(EventBlock* event) { return Handle(PR, event); }

    int HEBC_VR_Register(const VolumeKey& key) { return Register(VR, key); }
    int HEBC_VR_Unregister() { return Unregister(VR); }
    static std::uint32_t HEBC_VR_Callback(EventBlock* event) { return Deliver<VR>(event); }
    std::uint32_t HEBC_VR_Handler(EventBlock* event) { return Handle(VR, event); }

    int HEBC_VRX_Register(const VolumeKey& key) { return Register(VRX, key); }
    int HEBC_VRX_Unregister() { return Unregister(VRX); }
    static std::uint32_t HEBC_VRX_Callback(EventBlock* event) { return Deliver<VRX>(event); }
    std::uint32_t HEBC_VRX_Handler(EventBlock* event) { return Handle(VRX, event); }

    int HEBC_VD_Register(const VolumeKey& key) { return Register(VD, key); }
    int HEBC_VD_Unregister() { return Unregister(VD); }
    static std::uint32_t HEBC_VD_Callback(EventBlock* event) { return Deliver<VD>(event); }
    std::uint32_t HEBC_VD_Handler(EventBlock* event) { return Handle(VD, event); }

    int HEBC_VDX_Register(const VolumeKey& key) { return Register(VDX, key); }
    int HEBC_VDX_Unregister() { return Unregister(VDX); }
    static std::uint32_t HEBC_VDX_Callback(EventBlock* event) { return Deliver<VDX>(event); }
    std::uint32_t HEBC_VDX_Handler(EventBlock* event) { return Handle(VDX, event); }

    int HEBC_ZID64E_Register(const VolumeKey& key) { return Register(ZID64E, key); }
    int HEBC_ZID64E_Unregister() { return Unregister(ZID64E); }
    static std::uint32_t HEBC_ZID64E_Callback(EventBlock* event) { return Deliver<ZID64E>(event); }
    std::uint32_t HEBC_ZID64E_Handler(EventBlock* event) { return Handle(ZID64E, event); }

    int HEBC_ZID64X_Register(const VolumeKey& key) { return Register(ZID64X, key); }
    int HEBC_ZID64X_Unregister() { return Unregister(ZID64X); }
    static std::uint32_t HEBC_ZID64X_Callback(EventBlock* event) { return Deliver<ZID64X>(event); }
    std::uint32_t HEBC_ZID64X_Handler(EventBlock* event) { return Handle(ZID64X, event); }

  private:
    /// What one registration watches. It never changes but for the flags, and lives as long as the
    /// consumer, so a handler may go on reading it after the family was registered anew.
    struct Registration {
        Registration(const PVKey& key, HEBChangeFlag flag)
            : watched(key), changeRequired(std::move(flag)) {}

        const PVKey watched;
        const HEBChangeFlag changeRequired;
        std::atomic<bool> registered{true};
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
    int Register(HEBFamily family, const PVKey& key, HEBChangeFlag changeRequired = nullptr);
    int Unregister(HEBFamily family);
    std::uint32_t Handle(HEBFamily family, EventBlock* event);
    std::uint32_t Answer(HEBFamily family, EventBlock* event);
    void AwaitHandlers() const;
    struct RetiredConsumers;
    static RetiredConsumers& Retired();
    static std::uint32_t HandleChange(const HEBFamilyFacts& facts, const Registration& registration,
                                      EventBlock* event);

    const std::string name_;
    HaldenEventBus bus_;
    std::array<Slots, kHEBFamilies> slots_;
    bool offeredToBus_ = false;
    std::atomic<int> handling_{0};  ///< handlers at work
    std::atomic<bool> silent_{false};
};
