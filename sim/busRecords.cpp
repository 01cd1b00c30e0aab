#include "sim/busRecords.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

// The registration record.
constexpr std::size_t kVersionAt = 0;  // 32 bits
constexpr std::size_t kConsumerAt = 8;
constexpr std::size_t kEventAt = 16;
constexpr std::size_t kContextAt = 24;
constexpr std::size_t kCallbackAt = 48;
constexpr std::size_t kSecondCallbackAt = 96;
constexpr std::size_t kKindAt = 104;  // 32 bits
constexpr std::size_t kHandleAt = 112;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kKind = 3;

// The event block.
constexpr std::size_t kDataAt = 64;
constexpr std::size_t kNotifyTypeAt = 88;  // 32 bits
constexpr std::size_t kBlockContextAt = 96;
constexpr std::size_t kRefusalAt = 112;

// The event data. What a rename and a finished deletion add stands behind the GUID.
constexpr std::size_t kOldStateAt = 8;   // 16 bits
constexpr std::size_t kNewStateAt = 10;  // 16 bits
constexpr std::size_t kModeAt = 16;
constexpr std::size_t kGuidAt = 24;
constexpr std::size_t kNewGuidAt = 40;
constexpr std::size_t kOldNameAt = 56;
constexpr std::size_t kNewNameAt = 64;

template <typename Value>
Value Load(const void* record, std::size_t offset) {
    Value value{};
    std::memcpy(&value, static_cast<const std::byte*>(record) + offset, sizeof value);
    return value;
}

template <typename Value>
void Store(void* record, std::size_t offset, const Value& value) {
    std::memcpy(static_cast<std::byte*>(record) + offset, &value, sizeof value);
}

bool IsZero(const void* record, std::size_t begin, std::size_t end) {
    const auto* bytes = static_cast<const std::byte*>(record);
    return std::all_of(bytes + begin, bytes + end, [](std::byte b) { return b == std::byte{0}; });
}

// One code point of UTF-8 from the front of `text`, which becomes shorter; a byte that begins
// none stands for itself.
char32_t TakeCodePoint(std::string_view& text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    if (text.size() <= more) {
        text.remove_prefix(1);
        return lead;
    }
    char32_t value = more == 0 ? lead : lead & (0x3FU >> more);
    for (std::size_t i = 1; i <= more; ++i) {
        value = value << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    text.remove_prefix(more + 1);
    return value;
}

// The names of the storage service are UTF-16 with a zero unit at the end.
std::vector<char16_t> Utf16Of(std::string_view text) {
    std::vector<char16_t> units;
    while (!text.empty()) {
        const char32_t point = TakeCodePoint(text);
        if (point >= 0x10000) {
            units.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<char16_t>(point));
        }
    }
    units.push_back(0);
    return units;
}

}  // namespace

std::optional<ConsumerRecord> ReadConsumerRecord(const void* record) {
    const auto* consumer = Load<const char*>(record, kConsumerAt);
    const auto* event = Load<const char*>(record, kEventAt);
    const auto callback = Load<BusCallback>(record, kCallbackAt);
    const bool fixed = Load<std::uint32_t>(record, kVersionAt) == kVersion &&
                       Load<std::uint32_t>(record, kKindAt) == kKind;
    const bool unusedZero = IsZero(record, kVersionAt + 4, kConsumerAt) &&
                            IsZero(record, kContextAt + 8, kCallbackAt) &&
                            IsZero(record, kCallbackAt + 8, kSecondCallbackAt) &&
                            IsZero(record, kKindAt + 4, kHandleAt);
    if (!fixed || !unusedZero || consumer == nullptr || event == nullptr || callback == nullptr ||
        Load<BusCallback>(record, kSecondCallbackAt) != callback) {
        return std::nullopt;
    }
    return ConsumerRecord{consumer, event, Load<std::uint64_t>(record, kContextAt), callback};
}

void WriteHandle(void* record, std::uint64_t handle) {
    Store(record, kHandleAt, handle);
}

EventRecords::EventRecords(const BusEvent& event, std::uint64_t context)
    : oldName_(Utf16Of(event.oldName)), newName_(Utf16Of(event.newName)) {
    Store(block_.data(), kDataAt, data_.data());
    Store(block_.data(), kNotifyTypeAt, event.notifyType);
    Store(block_.data(), kBlockContextAt, context);
    Store(data_.data(), kOldStateAt, event.oldState);
    Store(data_.data(), kNewStateAt, event.newState);
    Store(data_.data(), kModeAt, event.mode);
    Store(data_.data(), kGuidAt, event.guid);
    Store(data_.data(), kNewGuidAt, event.newGuid);
    Store(data_.data(), kOldNameAt, oldName_.data());
    Store(data_.data(), kNewNameAt, newName_.data());
}

std::uint64_t EventRecords::RefusalStatus() const {
    return Load<std::uint64_t>(block_.data(), kRefusalAt);
}

}  // namespace sim
