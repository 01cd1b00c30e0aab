#pragma once

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>

// Statuses are plain integers, 0 for success. The catalogue numbers that this code returns or
// tests stand here by name; the whole catalogue is `ErrorTable`.

// Memory, parameters and calls.
inline constexpr int zERR_NO_MEMORY = 20000;
inline constexpr int zERR_BUFFER_TOO_SMALL = 20004;
inline constexpr int zERR_RETURN_PARA_NULL = 20005;
inline constexpr int zERR_QUAD_TOO_BIG_FOR_LONG = 20006;
inline constexpr int zERR_BAD_PARAMETER_VALUE = 20008;
inline constexpr int zERR_INVALID_STATE = 20010;
inline constexpr int zERR_NOT_SUPPORTED = 20011;
inline constexpr int zERR_MEDIA_CORRUPTED = 20012;
inline constexpr int zERR_USER_ABORTED = 20017;

// Reading, writing and conversion.
inline constexpr int zERR_END_OF_FILE = 20100;
inline constexpr int zERR_BAD_TRANSFORMATION = 20150;

// Files and names.
inline constexpr int zERR_FILE_ACCESS_REFUSED = 20401;
inline constexpr int zERR_NO_FILES_FOUND = 20424;
inline constexpr int zERR_UNABLE_TO_OPEN_BEAST = 20431;
inline constexpr int zERR_ZID_NOT_FOUND = 20444;

// Volumes and pools.
inline constexpr int zERR_POOL_STATE_INCOMPATIBLE = 20813;
inline constexpr int zERR_INVALID_VOLUME_ID = 20821;
inline constexpr int zERR_VOLUME_STATE_CHANGE_REQUESTED = 20826;
inline constexpr int zERR_POOL_CONSUMER_PREVENTED = 20880;
inline constexpr int zERR_VOLUME_CONSUMER_PREVENTED = 20881;

// Compression, XML and text libraries.
inline constexpr int zERR_COMPRESSION_NOT_ENABLED = 21209;
inline constexpr int zERR_XML_IS_INCOMPLETE = 21703;
inline constexpr int zERR_LIB_SEARCH_STRING_NOT_FOUND = 21820;
inline constexpr int zERR_LIB_QUOTE_NOT_FOUND = 21821;

// Superblocks, and the status of last resort.
inline constexpr int zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE = 24861;
inline constexpr int zERR_SUPERBLOCK_MISMATCH = 24865;
inline constexpr int zERR_GENERIC_OSTREL_ERROR = 24999;

// Statuses outside the catalogue.

/// Plus `errno`: a system call failed.
inline constexpr int zSYSTEM_ERROR_BASE = 0x22BA5000;
/// Plus zlib's result, which is negative: inflate failed.
inline constexpr int zINFLATE_ERROR_BASE = 0x22115000;
/// A scan file failed validation: it has no records, or its CRC does not match.
inline constexpr int zSCAN_FILE_INVALID = 0x22DA5E25;
/// A device read came back short without an error and before the end.
inline constexpr int zSHORT_DEVICE_READ = 0x22DA67F3;
/// The event bus refused a registration.
inline constexpr int zEVENT_REGISTRATION_FAILED = 0x22DA67F4;
/// Not a failure: the scan file is still being written.
inline constexpr int zFILE_BEING_WRITTEN = 28001;
/// A device write came back short without an error.
inline constexpr int zSHORT_DEVICE_WRITE = 28576;

/// The status of a failed system call; `errorNumber` is its `errno`.
constexpr int SystemErrorStatus(int errorNumber) {
    return zSYSTEM_ERROR_BASE + errorNumber;
}

/// One catalogue row. Both catalogues end with a sentinel of code 0, "End of table".
struct ErrorRow {
    std::int32_t code;
    const char* name;
};

/// The storage service's statuses: 714 rows in strictly ascending order, and the sentinel.
extern const ErrorRow ErrorTable[715];
/// The statuses of the directory and network interface layer: 449 rows in ascending order, and the
/// sentinel. A code can have several names; a trailing blank belongs to its name.
extern const ErrorRow QDS_NIT_ErrorTable[450];

// The lookups never fail and return constant strings that nobody frees; any thread may call them.

/// The first name of a directory or network interface status, "ERR_OK" for 0,
/// "ERR_UNKNOWN_ERROR" for a code outside the catalogue. The whole of `code` counts, so a number
/// that only reads like a status in its low 32 bits is unknown.
const char* QDS_NIT_GetErrorFromNumber(long code);

/// "MM_UNKNOWN_ERROR", whatever the code.
const char* MM_GetErrorFromNumber(unsigned long code);

namespace Ostrel {

/// The name of a storage-service status: "zOK" for 0, "zFAILURE" for -1,
/// "zERR_UNKNOWN_ERROR" for a number from 20000 on that the catalogue does not have; every other
/// number below 20000 is left to `MM_GetErrorFromNumber`.
const char* GetErrorFromNumber(int code);

}  // namespace Ostrel

/// Thrown by the storage-service access layer when the service refuses a request or its reply
/// holds no usable value; caught by that layer's callers, a pass at the latest at its top.
struct OstrelError : std::runtime_error {
    /// `raisedAt` is the source position, as in "util/common/ostrelVFS[534]".
    OstrelError(const std::string& message, std::int32_t errorStatus, std::string raisedAt);

    std::int32_t status;              ///< a catalogue number or a composite status
    std::string where;                ///< the source position
    std::int32_t isOstrelStatus = 1;  ///< 0 in an `AdminError`
    std::int32_t systemError = 0;     ///< `errno` of a failed system call, else 0
};

/// Thrown by the management channel and the reply scanning when the channel itself fails or a
/// reply is malformed; caught before `OstrelError` by callers that tell the channel's failures
/// from the service's.
struct AdminError : OstrelError {
    /// A system call of the channel failed with `errorNumber`; the status is 0.
    AdminError(const std::string& message, std::string raisedAt, std::int32_t errorNumber = errno);
    /// A reply is malformed, or tells of a write that the service refused.
    AdminError(const std::string& message, std::int32_t errorStatus, std::string raisedAt,
               std::int32_t errorNumber = 0);
};
