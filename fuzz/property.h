#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the process where a property does not hold, so that the input is kept and reported.
inline void Require(bool holds, const char* property, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, property);
        std::abort();
    }
}

}  // namespace fuzz
