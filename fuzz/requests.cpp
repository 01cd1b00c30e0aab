// Requests to the stand-in: "state bytes, then requests that end with \n". Whatever is asked, there
// is one reply of a known frame, and what was asked for is in it.

#include "sim/requests.h"

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "sim/simulation.h"
#include "sim/statuses.h"

namespace {

constexpr std::string_view kRoot = "<ostrelReply><result value=\"0\"/>";

void FillIn(sim::Service& service) {
    service.Add(sim::ObjectKind::Pool, {"DATA", sim::GuidFromName("DATA"), "maintenance", ""});
    service.Add(sim::ObjectKind::Pool, {"OTHER", sim::GuidFromName("OTHER"), "active", ""});
    service.Add(sim::ObjectKind::Volume, {"VOL", sim::GuidFromName("VOL"), "active", ""});
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): in the order in which they are spoken
void CheckReply(const std::string& request, const std::string& reply) {
    const bool answered = reply.starts_with(kRoot) && reply.ends_with("</ostrelReply>");
    fuzz::Require(answered || reply == sim::WriteResultReply(sim::kRequestRefused),
                  "a reply, or a refusal");
    fuzz::Require(!answered || request.starts_with("<ostrelRequest>"),
                  "only requests are answered");
    fuzz::Require(reply.find('\0') == std::string::npos, "a reply is a text");
}

/// What is asked behind all requests is answered as if they had not been.
void CheckLast(sim::Requests& requests) {
    const std::string reply = requests.Answer(
        "<ostrelRequest><pool><getPoolInfo> type=\"basic\"><poolName>DATA</poolName></getPoolInfo>"
        "</pool></ostrelRequest>");
    const std::string guid = "<poolGUID>" + sim::TextOfGuid(sim::GuidFromName("DATA"));
    fuzz::Require(reply.find("<poolName>DATA</poolName>") != std::string::npos &&
                      reply.find(guid) != std::string::npos,
                  "the service still knows its pool");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sim::Trace trace;
    sim::Service service;
    sim::Jobs jobs;
    sim::BusHub hub(trace);
    sim::Changes changes(service, hub, trace);
    sim::Requests requests(service, jobs, changes);
    FillIn(service);
    fuzz::Input input(data, size);
    for (int i = 0; i < 16 && !input.Empty(); ++i) {
        const std::string request = input.Word('\n');
        CheckReply(request, requests.Answer(request));
    }
    CheckLast(requests);
    return 0;
}
