#pragma once

#include <cstdint>

namespace support {

/// The splitmix64 generator: the same numbers from the same seed on every machine and library.
class FixedRandom {
  public:
    explicit FixedRandom(std::uint64_t seed) : state_(seed) {}

    std::uint64_t Next() {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31U);
    }

    /// A number from 0 to limit - 1; limit is 1 to 2^32.
    std::uint64_t Below(std::uint64_t limit) { return ((Next() >> 32U) * limit) >> 32U; }

    /// True `percent` times in a hundred.
    bool Chance(unsigned percent) { return Below(100) < percent; }

  private:
    std::uint64_t state_;
};

}  // namespace support
