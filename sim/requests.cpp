#include "sim/requests.h"

#include "sim/faults.h"
#include "sim/statuses.h"

namespace sim {
namespace {

constexpr std::string_view kPoolInfoBegin =
    "<ostrelRequest><pool><getPoolInfo> type=\"basic\"><poolName>";
constexpr std::string_view kPoolInfoEnd = "</poolName></getPoolInfo></pool></ostrelRequest>";
constexpr std::string_view kVolumeInfoBegin =
    "<ostrelRequest><volume><getVolumeInfo> type=\"basic\"><volumeName>";
constexpr std::string_view kVolumeInfoEnd =
    "</volumeName></getVolumeInfo></volume></ostrelRequest>";
constexpr std::string_view kModifyBegin = "<ostrelRequest><volume><modifyState><volumeName>";
constexpr std::string_view kModifyMiddle = "</volumeName><volumeState>";
constexpr std::string_view kModifyEnd = "</volumeState></modifyState></volume></ostrelRequest>";

// What stands between a request's fixed beginning and end.
std::optional<std::string_view> Between(std::string_view text, std::string_view begin,
                                        std::string_view end) {
    if (text.size() < begin.size() + end.size() || !text.starts_with(begin) ||
        !text.ends_with(end)) {
        return std::nullopt;
    }
    return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

std::string Element(const std::string& name, std::string_view content) {
    return "<" + name + ">" + std::string(content) + "</" + name + ">";
}

std::uint64_t StatusOfChange(const ChangeOutcome& outcome) {
    switch (outcome.kind) {
        case ChangeOutcome::Kind::Done:
            return 0;
        case ChangeOutcome::Kind::Vetoed:
            return outcome.Veto()->refusalStatus != 0 ? outcome.Veto()->refusalStatus
                                                      : kGenericError;
        case ChangeOutcome::Kind::Unknown:
            return kNotFound;
        default:
            return kInvalidState;
    }
}

}  // namespace

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): in the order of the text
std::string FramedReply(std::string_view subject, std::string_view operation, std::uint64_t result,
                        std::string_view content) {
    const std::string own = "<result value=\"" + std::to_string(result) + "\"/>";
    const std::string inner = Element(std::string(operation), own + std::string(content));
    return "<ostrelReply><result value=\"0\"/>" + Element(std::string(subject), inner) +
           "</ostrelReply>";
}

std::string Requests::Answer(std::string_view request) {
    if (const auto reply = Info(ObjectKind::Pool, request)) {
        return *reply;
    }
    if (const auto reply = Info(ObjectKind::Volume, request)) {
        return *reply;
    }
    if (const auto reply = ModifyState(request)) {
        return *reply;
    }
    return verify_.Answer(request).value_or(WriteResultReply(kRequestRefused));
}

std::optional<std::string> Requests::Info(ObjectKind kind, std::string_view request) const {
    const bool pool = kind == ObjectKind::Pool;
    const auto name = pool ? Between(request, kPoolInfoBegin, kPoolInfoEnd)
                           : Between(request, kVolumeInfoBegin, kVolumeInfoEnd);
    if (!name || !IsPlainName(*name)) {
        return std::nullopt;
    }
    const std::string subject(KindName(kind));
    const std::string operation = pool ? "getPoolInfo" : "getVolumeInfo";
    const auto object = service_.Find(kind, *name);
    if (!object) {
        return FramedReply(subject, operation, kNotFound, "");
    }
    const std::string values = Element(subject + "Name", object->name) +
                               Element(subject + "State", object->state) +
                               Element(subject + "GUID", TextOfGuid(object->guid));
    return FramedReply(subject, operation, 0, Element("basicInfo", values));
}

std::optional<std::string> Requests::ModifyState(std::string_view request) {
    const auto inner = Between(request, kModifyBegin, kModifyEnd);
    const auto middle = inner ? inner->find(kModifyMiddle) : std::string_view::npos;
    if (middle == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string name(inner->substr(0, middle));
    const std::string state(inner->substr(middle + kModifyMiddle.size()));
    if (!IsPlainName(name) || !IsPlainName(state)) {
        return std::nullopt;
    }
    // Bounded, since a consumer that stays silent would hold the channel for good.
    const std::uint64_t status =
        StateNumber(state) == 0 ? kBadParameter
                                : StatusOfChange(changes_.State(ObjectKind::Volume, name, state,
                                                                false, std::chrono::seconds(30)));
    return FramedReply("volume", "modifyState", status, "");
}

}  // namespace sim
