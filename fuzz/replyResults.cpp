// The results that a reply tells, and the refusal that stands in place of one. The forms that throw
// and those that return a status say the same.

#include <functional>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "util/common/errors.h"
#include "util/common/ostrelVFS.h"
#include "util/common/tXML.h"

namespace {

struct Operation {
    const char* tag;
    void (*check)(const std::string& reply);
};

constexpr Operation kOthers[] = {
    {"<pool><getPoolInfo>", TXML::GetPoolBasicInfoReplyResultValueT},
    {"<volume><getVolumeInfo>", TXML::GetVolumeBasicInfoReplyResultValueT},
    {"<volume><modifyState>", TXML::GetVolumeModifyStateReplyResultValueT}};

/// The status that a check throws; 0 when it throws nothing.
std::int64_t Thrown(const std::function<void()>& check) {
    try {
        check();
    } catch (const OstrelError& failure) {
        return failure.status;
    }
    return 0;
}

/// What the form without exceptions makes of a result: its status, or the result itself.
std::int64_t Returned(int status, int value) {
    return status != 0 ? status : value;
}

void CheckRoot(const std::string& reply) {
    int value = 0;
    const int status = TXML::GetOstrelReplyResultValue(reply, value);
    const std::int64_t thrown = Thrown([&] { TXML::GetOstrelReplyResultValueT(reply); });
    fuzz::Require(thrown == Returned(status, value), "the root's result");
    fuzz::Require(Thrown([&] { TXML::GetReplyResultValueT(reply, "<ostrelReply>"); }) == thrown,
                  "by its path");
}

void CheckOperation(const std::string& reply) {
    int value = 0;
    const int status = TXML::GetPoolVerifyReplyResultValue(reply, value);
    const std::int64_t thrown = Thrown([&] { TXML::GetPoolVerifyReplyResultValueT(reply); });
    fuzz::Require(thrown == Returned(status, value), "the operation's result");
    fuzz::Require(
        Thrown([&] { TXML::GetReplyResultValueForTag(reply, "<pool><poolVerify>"); }) == thrown,
        "by its tag");
    for (const Operation& other : kOthers) {
        fuzz::Require(Thrown([&] { other.check(reply); }) ==
                          Thrown([&] { TXML::GetReplyResultValueForTag(reply, other.tag); }),
                      "each operation's");
    }
}

void CheckRefusal(const std::string& reply) {
    const fuzz::TightText text(reply);
    std::uint64_t status = 77;
    const bool refused =
        OstrelVirtualFileServices::IsFunnyErrorPresent(text.Size(), text.Begin(), status);
    fuzz::Require(refused || status == 0, "no refusal, no status");
    std::string words;
    const bool told = reply.size() >= 14 && reply.starts_with("<writeResult>") &&
                      TXML::MOSTREL_GetSpecificTemplate("<writeResult><error>", reply.size(),
                                                        reply.data(), words) == 0;
    fuzz::Require(refused == told, "a refusal where one is told");
    fuzz::Require(!refused || words.find('(') != std::string::npos ||
                      status == zERR_GENERIC_OSTREL_ERROR || words.empty(),
                  "a status stands in parentheses");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    const std::string reply(reinterpret_cast<const char*>(data), size);
    CheckRoot(reply);
    CheckOperation(reply);
    CheckRefusal(reply);
    return 0;
}
