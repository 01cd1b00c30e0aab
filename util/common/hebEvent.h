#pragma once

#include <cstddef>
#include <cstdint>

#include "util/common/guid.h"

// The bus's side of an event: the records that a callback is handed, and what it may answer.

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

/// Called on the bus's own thread; returns the consumer's answer.
using HEBCallback = std::uint32_t (*)(EventBlock* event);
