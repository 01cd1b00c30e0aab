#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Where an injected fault takes effect.
enum class FaultPoint { Open, Switch, Write, Read, Delay, Reply, BusRegister, BusUnregister };

/// A fault that waits for its turn.
struct Fault {
    std::string kind;
    std::string argument;
    std::uint64_t after = 0;  ///< turns that it lets pass first
    std::uint64_t next = 1;   ///< turns that it then takes
};

/// The injected faults. Any thread may call it.
class Faults {
  public:
    /// What is wrong with the kind or its argument; empty when the fault is taken.
    std::string Add(Fault fault);
    void Clear();
    std::vector<Fault> Waiting() const;

    /// A turn at `point`: the faults that strike now.
    std::vector<Fault> Strike(FaultPoint point);

    /// A turn at a point where all that matters is whether a fault strikes.
    bool Strikes(FaultPoint point) { return !Strike(point).empty(); }

  private:
    mutable std::mutex mutex_;
    std::list<Fault> faults_;
};

/// The reply with a fault of the point `Reply` worked into it.
std::string DistortReply(const std::string& reply, const Fault& fault);

/// A refused request: the write-result text with the status in parentheses.
std::string WriteResultReply(std::uint64_t status);

}  // namespace sim
