#pragma once

#include <cstdint>
#include <iosfwd>

/// Identifies a pool, a volume or a dump run. The layout is that of files and of the event bus.
struct GUID_t {
    std::uint32_t timeLow;               ///< of 60 bits of time: bits 0 to 31
    std::uint16_t timeMid;               ///< bits 32 to 47
    std::uint16_t timeHiAndVersion;      ///< bits 48 to 59; the top four are 0 in generated ones
    std::uint8_t clockSeqHiAndReserved;  ///< bits 8 to 13 of the clock sequence below the bits 10
    std::uint8_t clockSeqLow;            ///< its bits 0 to 7
    std::uint8_t node[6];                ///< most significant first in the text form
};
static_assert(sizeof(GUID_t) == 16);

/// All 16 bytes 0: no object, and the key of all objects.
extern const GUID_t zZERO_GUID;
/// The same value as the zero GUID.
extern const GUID_t zINVALID_GUID;
/// All 16 bytes 0xFF: the storage service's administrative volume.
extern const GUID_t zADMINVOL_GUID;

/// Writes the text form of `LB_GUIDToString`. The stream keeps its flags, but its fill character is
/// '0' afterwards.
std::ostream& operator<<(std::ostream& stream, const GUID_t& guid);

namespace Ostrel {

/// Length of a GUID's text form without its end.
inline constexpr unsigned kGUIDTextLength = 37;

/// The generator's state, one for the process and unguarded: callers in several threads serialise
/// generation themselves.
extern unsigned GUIDclockSeq;        ///< of the last GUID, 14 bits
extern std::uint8_t GUIDnode[6];     ///< this process's node identifier
extern bool GUIDinitDone;            ///< whether the node identifier has been made up
extern std::uint64_t GUIDsavedTime;  ///< the last GUID's, as `GUID_getTime` counts

/// 100-nanosecond intervals since 15 October 1582, at the resolution of one second.
std::uint64_t GUID_getTime();

/// Makes up a node identifier for this process; it seeds the C library's generator to do so.
void GUID_init();

/// A GUID that this process has not made before, of the present second. Unguarded, as its state is.
void LB_GUIDGenerate(GUID_t* out);

/// Writes the 37 characters (groups of 8-4-4-2-2-12) and their end: 0, or `zERR_BUFFER_TOO_SMALL`
/// and an empty text when `size` is not above 37.
int LB_GUIDToString(const GUID_t* guid, unsigned size, char* out);

/// Reads the 37-character form or the common one of 36 (8-4-4-4-12): 0, or
/// `zERR_INVALID_VOLUME_ID`, when the fields read so far have been stored already.
int LB_GUIDFromUTF8(const char* text, GUID_t* out);

/// 1 for a GUID of the form that `LB_GUIDGenerate` makes, else 0.
int LB_GUIDValidate(const GUID_t* guid);

/// 1, 0 or -1 by the four 32-bit words in memory order: not a byte-wise order.
int LB_GUIDCompare(const GUID_t* a, const GUID_t* b);

/// The number of a state's word: "active" 6, "deactive" 2, "maintenance" 3, any other 0.
unsigned LB_VolumeStateStringToVolumeStateNumber(const char* word);

}  // namespace Ostrel
