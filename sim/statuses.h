#pragma once

#include <cstdint>

namespace sim {

/// The statuses that the service answers with.
constexpr std::uint64_t kBadParameter = 20008;
constexpr std::uint64_t kInvalidState = 20010;
constexpr std::uint64_t kRequestRefused = 20401;
constexpr std::uint64_t kNotFound = 20444;
constexpr std::uint64_t kPoolStateIncompatible = 20813;
constexpr std::uint64_t kGenericError = 24999;

}  // namespace sim
