#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "sim/busHub.h"
#include "sim/service.h"
#include "sim/trace.h"

namespace sim {

/// How a change of a pool or volume went.
struct ChangeOutcome {
    enum class Kind { Done, Vetoed, TimedOut, Unknown, Busy, NameTaken };
    Kind kind = Kind::Done;
    std::vector<ConsumerAnswer> answers;   ///< to the announcement
    std::chrono::milliseconds elapsed{0};  ///< until the last answer was there

    /// The first consumer's veto; null when nobody refused.
    const ConsumerAnswer* Veto() const;
};

/// The changes that the service announces on the bus before, and in part after, it makes them.
/// Any thread may call it; one object has one change at a time.
class Changes {
  public:
    Changes(Service& service, BusHub& hub, Trace& trace)
        : service_(service), hub_(hub), trace_(trace) {}

    // Each waits for the consumers' answers, for `timeout` at most; one that stays silent keeps the
    // change from being made.

    /// A forced change cannot be refused: it waits for every answer and is then made.
    ChangeOutcome State(ObjectKind kind, const std::string& name, const std::string& state,
                        bool forced, BusHub::Timeout timeout);
    /// Gives a pool or volume a name that no other of its kind has.
    ChangeOutcome Rename(ObjectKind kind, const std::string& name, const std::string& newName,
                         BusHub::Timeout timeout);
    /// Removes a volume; consumers that watch for the end of it hear of a new GUID too.
    ChangeOutcome DeleteVolume(const std::string& name, BusHub::Timeout timeout);
    /// Announces the move of a volume to 64-bit numbers, which changes nothing that is served.
    ChangeOutcome Zid64(const std::string& name, BusHub::Timeout timeout);

  private:
    /// Announces `enter`, calls `make` unless a consumer refuses or stays silent, then announces
    /// `exit` when it has a name.
    template <typename Make>
    ChangeOutcome Carry(const StoredObject& object, const BusEvent& enter, const BusEvent& exit,
                        BusHub::Timeout timeout, Make make);

    Service& service_;
    BusHub& hub_;
    Trace& trace_;
    std::mutex mutex_;
    std::set<Guid> changing_;
};

}  // namespace sim
