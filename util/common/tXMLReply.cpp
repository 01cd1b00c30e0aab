#include <cstdio>
#include <limits>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/tXML.h"

namespace TXML {
namespace {

constexpr const char* kReplyPath = "<ostrelReply>";

/// One operation's result: where it stands in a reply and what its failures say.
struct OperationCheck {
    const char* path;
    const char* parseMessage;
    const char* resultMessage;
    const char* parsePosition;
    const char* overflowPosition;
    const char* echoPosition;  ///< of the refused reply in the log; null where it is not logged
    const char* resultPosition;
};

constexpr OperationCheck kGetPoolInfo{"<ostrelReply><pool><getPoolInfo>",
                                      "Unable to parse XML tag <getPoolInfo>",
                                      "getPoolInfo results",
                                      "util/common/tXML[1390]",
                                      "util/common/tXML[1396]",
                                      "util/common/tXML[1400]",
                                      "util/common/tXML[1401]"};
constexpr OperationCheck kGetVolumeInfo{"<ostrelReply><volume><getVolumeInfo>",
                                        "Unable to parse XML tag <getVolumeInfo>",
                                        "getVolumeInfo results",
                                        "util/common/tXML[1353]",
                                        "util/common/tXML[1359]",
                                        "util/common/tXML[1363]",
                                        "util/common/tXML[1364]"};
constexpr OperationCheck kModifyState{"<ostrelReply><volume><modifyState>",
                                      "Unable to parse XML tag <modifyState>",
                                      "modifyState results",
                                      "util/common/tXML[1316]",
                                      "util/common/tXML[1322]",
                                      "util/common/tXML[1326]",
                                      "util/common/tXML[1327]"};
constexpr OperationCheck kPoolVerify{"<ostrelReply><pool><poolVerify>",
                                     "Unable to parse XML tag <poolVerify>",
                                     "poolVerify results",
                                     "util/common/tXML[1279]",
                                     "util/common/tXML[1285]",
                                     "util/common/tXML[1289]",
                                     "util/common/tXML[1290]"};

/// A reply without a "value" attribute counts as a success.
int ResultValue(const std::string& reply, const char* path, std::int64_t& value) {
    value = 0;
    return MOSTREL_GetResultValueAttribute(path, reply.size(), reply.data(), value);
}

int ResultValueAsInt(const std::string& reply, const char* path, int& value) {
    std::int64_t wide = 0;
    if (const int status = ResultValue(reply, path, wide); status != 0) {
        return status;
    }
    if (!FitsStatus(wide)) {
        return zERR_QUAD_TOO_BIG_FOR_LONG;
    }
    value = static_cast<int>(wide);
    return 0;
}

void CheckOperation(const std::string& reply, const OperationCheck& check) {
    std::int64_t value = 0;
    if (const int status = ResultValue(reply, check.path, value); status != 0) {
        throw AdminError(check.parseMessage, status, check.parsePosition);
    }
    // Before it is looked at as a status: cut to 32 bits it could read as a success.
    if (!FitsStatus(value)) {
        throw OstrelError("Value overflow", zERR_QUAD_TOO_BIG_FOR_LONG, check.overflowPosition);
    }
    if (value != 0) {
        if (check.echoPosition != nullptr) {
            LogLine() << check.echoPosition << reply << '\n';
        }
        throw OstrelError(check.resultMessage, static_cast<std::int32_t>(value),
                          check.resultPosition);
    }
}

}  // namespace

bool FitsStatus(std::int64_t value) {
    return value >= std::numeric_limits<std::int32_t>::min() &&
           value <= std::numeric_limits<std::int32_t>::max();
}

void GetReplyResultValueT(const std::string& reply, const char* path) {
    char message[256] = "";
    std::snprintf(message, sizeof message, "Unable to parse XML tag %s", path);
    CheckOperation(reply, {path, message, "Reply results", "util/common/tXML[1159]",
                           "util/common/tXML[1165]", nullptr, "util/common/tXML[1169]"});
}

void GetReplyResultValueForTag(const std::string& reply, const char* tag) {
    GetReplyResultValueT(reply, (std::string(kReplyPath) + tag).c_str());
}

void GetOstrelReplyResultValueT(const std::string& reply) {
    GetReplyResultValueT(reply, kReplyPath);
}

int GetOstrelReplyResultValue(const std::string& reply, int& value) {
    return ResultValueAsInt(reply, kReplyPath, value);
}

void GetPoolBasicInfoReplyResultValueT(const std::string& reply) {
    CheckOperation(reply, kGetPoolInfo);
}

void GetVolumeBasicInfoReplyResultValueT(const std::string& reply) {
    CheckOperation(reply, kGetVolumeInfo);
}

void GetVolumeModifyStateReplyResultValueT(const std::string& reply) {
    CheckOperation(reply, kModifyState);
}

void GetPoolVerifyReplyResultValueT(const std::string& reply) {
    CheckOperation(reply, kPoolVerify);
}

int GetPoolVerifyReplyResultValue(const std::string& reply, int& value) {
    return ResultValueAsInt(reply, kPoolVerify.path, value);
}

}  // namespace TXML
