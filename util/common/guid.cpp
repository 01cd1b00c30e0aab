#include "util/common/guid.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <ostream>

#include "util/common/ascii.h"
#include "util/common/clock.h"
#include "util/common/errors.h"

const GUID_t zZERO_GUID{};
const GUID_t zINVALID_GUID{};
const GUID_t zADMINVOL_GUID{0xFFFFFFFF, 0xFFFF, 0xFFFF,
                            0xFF,       0xFF,   {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

std::ostream& operator<<(std::ostream& stream, const GUID_t& guid) {
    const std::ios_base::fmtflags flags = stream.flags();
    stream << std::hex << std::nouppercase << std::noshowbase << std::right << std::setfill('0');
    const auto group = [&stream](unsigned value, int width) -> std::ostream& {
        return stream << std::setw(width) << value;
    };
    group(guid.timeLow, 8) << '-';
    group(guid.timeMid, 4) << '-';
    group(guid.timeHiAndVersion, 4) << '-';
    group(guid.clockSeqHiAndReserved, 2) << '-';
    group(guid.clockSeqLow, 2) << '-';
    for (const std::uint8_t byte : guid.node) {
        group(byte, 2);
    }
    stream.flags(flags);
    return stream;
}

namespace Ostrel {

unsigned GUIDclockSeq = 0;
std::uint8_t GUIDnode[6];
bool GUIDinitDone = false;
std::uint64_t GUIDsavedTime = 0;

namespace {

constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::uint64_t kGregorianToUnixTicks = 0x01B21DD213814000;
constexpr unsigned kClockSeqMask = 0x3FFF;

/// Reads the dash-separated hexadecimal groups of a GUID's text, each of a fixed width.
class GroupReader {
  public:
    explicit GroupReader(const char* text) : at_(text) {}

    template <typename Number>
    bool Read(std::ptrdiff_t width, Number& out) {
        // The conversion alone would skip blanks and take a sign.
        if (!Ascii::IsHexDigit(*at_)) {
            return false;
        }
        char* end = nullptr;
        const unsigned long long value = std::strtoull(at_, &end, 16);
        if (end - at_ != width) {
            return false;
        }
        at_ = end;
        out = static_cast<Number>(value);
        return true;
    }

    bool ReadDash() { return *at_++ == '-'; }

  private:
    const char* at_;
};

bool ReadClockSequence(GroupReader& reader, bool commonForm, GUID_t& out) {
    if (!commonForm) {
        return reader.Read(2, out.clockSeqHiAndReserved) && reader.ReadDash() &&
               reader.Read(2, out.clockSeqLow);
    }
    std::uint16_t both = 0;
    if (!reader.Read(4, both)) {
        return false;
    }
    out.clockSeqHiAndReserved = static_cast<std::uint8_t>(both >> 8);
    out.clockSeqLow = static_cast<std::uint8_t>(both & 0xFF);
    return true;
}

bool ReadNode(GroupReader& reader, GUID_t& out) {
    std::uint64_t node = 0;
    if (!reader.Read(12, node)) {
        return false;
    }
    for (unsigned i = 0; i < 6; ++i) {
        out.node[i] = static_cast<std::uint8_t>(node >> (8 * (5 - i)) & 0xFF);
    }
    return true;
}

}  // namespace

std::uint64_t GUID_getTime() {
    return static_cast<std::uint64_t>(GetUTCTime()) * kTicksPerSecond + kGregorianToUnixTicks;
}

void GUID_init() {
    std::srand(static_cast<unsigned>(GetUTCTime()));
    for (std::uint8_t& byte : GUIDnode) {
        byte = static_cast<std::uint8_t>(std::rand() & 0xFF);
    }
    GUIDinitDone = true;
}

void LB_GUIDGenerate(GUID_t* out) {
    if (!GUIDinitDone) {
        GUID_init();
    }
    std::uint64_t time = GUID_getTime();
    // The clock ticks once a second: GUIDs of one second differ by the clock sequence alone.
    if (time <= GUIDsavedTime) {
        GUIDclockSeq = (GUIDclockSeq + 1) & kClockSeqMask;
        // All sequences of this second are used up: its next tick begins them anew.
        if (GUIDclockSeq == 0) {
            time = GUIDsavedTime + 1;
        }
    }
    GUIDsavedTime = time;
    out->timeLow = static_cast<std::uint32_t>(time & 0xFFFFFFFF);
    out->timeMid = static_cast<std::uint16_t>(time >> 32 & 0xFFFF);
    out->timeHiAndVersion = static_cast<std::uint16_t>(time >> 48 & 0x0FFF);
    out->clockSeqHiAndReserved = static_cast<std::uint8_t>((GUIDclockSeq >> 8 & 0x3F) | 0x80);
    out->clockSeqLow = static_cast<std::uint8_t>(GUIDclockSeq & 0xFF);
    std::memcpy(out->node, GUIDnode, sizeof out->node);
}

int LB_GUIDToString(const GUID_t* guid, unsigned size, char* out) {
    if (size <= kGUIDTextLength) {
        if (size > 0) {
            *out = '\0';
        }
        return zERR_BUFFER_TOO_SMALL;
    }
    // The dash between the two clock-sequence bytes is the service's own form.
    std::snprintf(out, size, "%08x-%04x-%04x-%02x-%02x-%02x%02x%02x%02x%02x%02x", guid->timeLow,
                  guid->timeMid, guid->timeHiAndVersion, guid->clockSeqHiAndReserved,
                  guid->clockSeqLow, guid->node[0], guid->node[1], guid->node[2], guid->node[3],
                  guid->node[4], guid->node[5]);
    return 0;
}

int LB_GUIDFromUTF8(const char* text, GUID_t* out) {
    const std::size_t length = std::strlen(text);
    const bool commonForm = length == kGUIDTextLength - 1;
    if (!commonForm && length != kGUIDTextLength) {
        return zERR_INVALID_VOLUME_ID;
    }
    GroupReader reader(text);
    const bool good =
        reader.Read(8, out->timeLow) && reader.ReadDash() && reader.Read(4, out->timeMid) &&
        reader.ReadDash() && reader.Read(4, out->timeHiAndVersion) && reader.ReadDash() &&
        ReadClockSequence(reader, commonForm, *out) && reader.ReadDash() && ReadNode(reader, *out);
    return good ? 0 : zERR_INVALID_VOLUME_ID;
}

int LB_GUIDValidate(const GUID_t* guid) {
    const bool good = (guid->clockSeqHiAndReserved & 0xC0) == 0x80 && guid->timeHiAndVersion < 4096;
    return good ? 1 : 0;
}

int LB_GUIDCompare(const GUID_t* a, const GUID_t* b) {
    // The service's own order: by words as they lie in memory, not by the fields.
    std::uint32_t wordsA[4];
    std::uint32_t wordsB[4];
    std::memcpy(wordsA, a, sizeof wordsA);
    std::memcpy(wordsB, b, sizeof wordsB);
    for (unsigned i = 0; i < 4; ++i) {
        if (wordsA[i] != wordsB[i]) {
            return wordsA[i] > wordsB[i] ? 1 : -1;
        }
    }
    return 0;
}

unsigned LB_VolumeStateStringToVolumeStateNumber(const char* word) {
    const struct {
        const char* word;
        unsigned number;
    } states[] = {{"active", 6}, {"deactive", 2}, {"maintenance", 3}};
    for (const auto& state : states) {
        if (std::strcmp(word, state.word) == 0) {
            return state.number;
        }
    }
    return 0;
}

}  // namespace Ostrel
