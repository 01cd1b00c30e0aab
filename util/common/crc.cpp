#include "util/common/crc.h"

#include <zlib.h>

namespace Ostrel {

std::uint32_t updateCRC(std::uint32_t crc, const void* bytes, std::uint64_t length) {
    if (length == 0) {
        return crc;  // zlib takes a null buffer as a question for the initial value
    }
    // zlib inverts the register on the way in and out; undoing both leaves the bare register.
    return ~static_cast<std::uint32_t>(crc32_z(~crc, static_cast<const Bytef*>(bytes), length));
}

}  // namespace Ostrel
