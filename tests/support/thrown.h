#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "util/common/errors.h"

/// Everything that an exception of the access layer says.
struct Thrown {
    std::string type = "nothing";
    std::string message;
    std::int32_t status = 0;
    std::string where;
    std::int32_t isOstrelStatus = -1;
    std::int32_t systemError = 0;

    bool operator==(const Thrown&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Thrown& thrown) {
    return stream << std::dec << thrown.type << " \"" << thrown.message << "\" status "
                  << thrown.status << " at " << thrown.where << ", isOstrelStatus "
                  << thrown.isOstrelStatus << ", errno " << thrown.systemError;
}

inline Thrown AnAdminError(const char* message, std::int32_t status, const char* where,
                           std::int32_t systemError = 0) {
    return {"AdminError", message, status, where, 0, systemError};
}

inline Thrown AnOstrelError(const char* message, std::int32_t status, const char* where) {
    return {"OstrelError", message, status, where, 1, 0};
}

inline Thrown ARuntimeError(const char* message) {
    return {"runtime_error", message, 0, "", -1, 0};
}

/// Runs `action` and tells what it threw, by its exact type.
template <typename Action>
Thrown ThrownBy(Action action) {
    try {
        action();
    } catch (const OstrelError& error) {
        const char* type = typeid(error) == typeid(AdminError)    ? "AdminError"
                           : typeid(error) == typeid(OstrelError) ? "OstrelError"
                                                                  : "another OstrelError";
        return {type,        error.what(),         error.status,
                error.where, error.isOstrelStatus, error.systemError};
    } catch (const std::exception& error) {
        const bool plain = typeid(error) == typeid(std::runtime_error);
        return {plain ? "runtime_error" : "another exception", error.what(), 0, "", -1, 0};
    }
    return {};
}
