#include "util/common/errors.h"

#include <utility>

namespace {

constexpr int kFirstCatalogueCode = 20000;

/// Scans `table` up to its sentinel; no caller asks for code 0, which is the sentinel's.
const char* FirstName(const ErrorRow* table, long code, const char* fallback) {
    for (const ErrorRow* row = table; row->code != 0; ++row) {
        if (row->code == code) {
            return row->name;
        }
    }
    return fallback;
}

}  // namespace

const char* QDS_NIT_GetErrorFromNumber(long code) {
    if (code == 0) {
        return "ERR_OK";
    }
    return FirstName(QDS_NIT_ErrorTable, code, "ERR_UNKNOWN_ERROR");
}

const char* MM_GetErrorFromNumber(unsigned long /*code*/) {
    return "MM_UNKNOWN_ERROR";
}

namespace Ostrel {

const char* GetErrorFromNumber(int code) {
    if (code == -1) {
        return "zFAILURE";
    }
    if (code == 0) {
        return "zOK";
    }
    if (code < kFirstCatalogueCode) {
        return MM_GetErrorFromNumber(static_cast<unsigned long>(code));
    }
    return FirstName(ErrorTable, code, "zERR_UNKNOWN_ERROR");
}

}  // namespace Ostrel

OstrelError::OstrelError(const std::string& message, std::int32_t errorStatus, std::string raisedAt)
    : std::runtime_error(message), status(errorStatus), where(std::move(raisedAt)) {}

AdminError::AdminError(const std::string& message, std::string raisedAt, std::int32_t errorNumber)
    : AdminError(message, 0, std::move(raisedAt), errorNumber) {}

AdminError::AdminError(const std::string& message, std::int32_t errorStatus, std::string raisedAt,
                       std::int32_t errorNumber)
    : OstrelError(message, errorStatus, std::move(raisedAt)) {
    isOstrelStatus = 0;
    systemError = errorNumber;
}
