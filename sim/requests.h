#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/changes.h"
#include "sim/jobs.h"
#include "sim/service.h"

namespace sim {

/// Answers the verify and rebuild requests.
class VerifyRequests {
  public:
    VerifyRequests(Service& service, Jobs& jobs) : service_(service), jobs_(jobs) {}

    /// The reply; nothing for a request of another form.
    std::optional<std::string> Answer(std::string_view request);

  private:
    class Request;
    std::string Start(const Request& request);
    std::string Details(const Request& request) const;
    std::string RemoveItem(const Request& request);
    std::string SetOptions(const Request& request);
    std::string LookUpName(const Request& request) const;
    std::string ChangeJob(const Request& request);
    std::string Serve(const Request& request);

    Service& service_;
    Jobs& jobs_;
};

/// Understands the requests that are written to the management file. Any thread may call it.
class Requests {
  public:
    Requests(Service& service, Jobs& jobs, Changes& changes)
        : service_(service), changes_(changes), verify_(service, jobs) {}

    /// The reply; a write-result error for what the service does not understand.
    std::string Answer(std::string_view request);

  private:
    std::optional<std::string> Info(ObjectKind kind, std::string_view request) const;
    std::optional<std::string> ModifyState(std::string_view request);

    Service& service_;
    Changes& changes_;
    VerifyRequests verify_;
};

/// A reply's frame: the root element with its result 0, the `subject` element in it, and in that
/// the `operation` element with its own result and `content`.
std::string FramedReply(std::string_view subject, std::string_view operation, std::uint64_t result,
                        std::string_view content);

}  // namespace sim
