#include "util/common/crc.h"

#include <libdeflate.h>

namespace Ostrel {

std::uint32_t updateCRC(std::uint32_t crc, const void* bytes, std::uint64_t length) {
    if (length == 0) {
        return crc;  // the library takes a null buffer as a question for the initial value
    }
    // The library inverts the register on the way in and out; undoing both leaves the bare
    // register.
    return ~libdeflate_crc32(~crc, bytes, length);
}

}  // namespace Ostrel
