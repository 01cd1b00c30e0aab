#include "util/zsbtool/failure.h"

#include <cstring>

namespace zsbtool {

Failure::Failure(const std::string& what, int errorNumber)
    : std::runtime_error(what + ": " + std::strerror(errorNumber)) {}

}  // namespace zsbtool
