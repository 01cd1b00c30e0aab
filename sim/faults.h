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

/// A fault as somebody asks for it.
struct FaultOrder {
    std::string kind;
    std::string argument;     ///< empty where the kind needs none
    std::uint64_t after = 0;  ///< turns that it lets pass first
    std::uint64_t next = 1;   ///< turns that it then takes
};

struct FaultKind;

/// A fault that waits for its turn.
struct Fault {
    const FaultKind* kind;     ///< its row in the table of the kinds, constant
    std::string argument;      ///< as it was given
    std::uint64_t number = 0;  ///< the argument as a number, or the kind's own without one
    std::uint64_t after = 0;   ///< turns that it still lets pass
    std::uint64_t next = 1;    ///< turns that it then still takes
};

/// The word that injects faults of this kind.
std::string_view NameOf(const Fault& fault);

/// The injected faults. Any thread may call it.
class Faults {
  public:
    /// Injects a fault. Gives what is wrong with the kind or its argument, empty when it is taken.
    std::string Add(const FaultOrder& order);

    /// Forgets the faults that wait, and lets the slow replies go that are under way.
    void Clear();

    /// How often the faults have been cleared: a slow reply waits while that stays the same.
    std::uint64_t Cleared() const;

    /// The faults that have turns left, in the order in which they were injected.
    std::vector<Fault> Waiting() const;

    /// A turn at `point`: the faults that strike now.
    std::vector<Fault> Strike(FaultPoint point);

    /// A turn at a point where all that matters is whether a fault strikes.
    bool Strikes(FaultPoint point) { return !Strike(point).empty(); }

  private:
    mutable std::mutex mutex_;
    std::list<Fault> faults_;
    std::uint64_t cleared_ = 0;
};

/// The reply with a fault of the point `Reply` worked into it.
std::string DistortReply(const std::string& reply, const Fault& fault);

/// A refused request: the write-result text with the status in parentheses.
std::string WriteResultReply(std::uint64_t status);

}  // namespace sim
