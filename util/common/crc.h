#pragma once

#include <cstdint>

namespace Ostrel {

/// Advances a running CRC-32 (reflected, polynomial 0xEDB88320) over `length` bytes.
/// Neither an initial value nor a final inversion is applied: the caller passes the running
/// register in and gets it back, so the CRC of several pieces is made by chaining calls.
std::uint32_t updateCRC(std::uint32_t crc, const void* bytes, std::uint64_t length);

}  // namespace Ostrel
