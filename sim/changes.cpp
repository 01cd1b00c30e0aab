#include "sim/changes.h"

#include <algorithm>

namespace sim {
namespace {

// Keeps an object's GUID in the set of those under change.
class UnderChange {
  public:
    UnderChange(std::mutex& mutex, std::set<Guid>& changing, const Guid& guid)
        : mutex_(mutex), changing_(changing), guid_(guid) {
        const std::scoped_lock lock(mutex_);
        entered_ = changing_.insert(guid_).second;
    }
    UnderChange(const UnderChange&) = delete;
    UnderChange& operator=(const UnderChange&) = delete;
    ~UnderChange() {
        const std::scoped_lock lock(mutex_);
        if (entered_) {
            changing_.erase(guid_);
        }
    }
    bool Entered() const { return entered_; }

  private:
    std::mutex& mutex_;
    std::set<Guid>& changing_;
    const Guid guid_;
    bool entered_ = false;
};

BusEvent EventAbout(const StoredObject& object, std::string_view name) {
    BusEvent event;
    event.name = name;
    event.guid = object.guid;
    event.mode = kUserAbortable;
    return event;
}

}  // namespace

const ConsumerAnswer* ChangeOutcome::Veto() const {
    const auto found = std::find_if(answers.begin(), answers.end(),
                                    [](const ConsumerAnswer& answer) { return answer.IsVeto(); });
    return found == answers.end() ? nullptr : &*found;
}

template <typename Make>
ChangeOutcome Changes::Carry(const StoredObject& object, const BusEvent& enter,
                             const BusEvent& exit, BusHub::Timeout timeout, Make make) {
    ChangeOutcome outcome;
    const UnderChange mark(mutex_, changing_, object.guid);
    if (!mark.Entered()) {
        outcome.kind = ChangeOutcome::Kind::Busy;
        return outcome;
    }
    const auto begin = std::chrono::steady_clock::now();
    outcome.answers = hub_.Announce(enter, timeout);
    outcome.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    // A veto decides even where another consumer stays silent.
    const bool silent =
        std::any_of(outcome.answers.begin(), outcome.answers.end(),
                    [](const auto& answer) { return answer.kind == ConsumerAnswer::Kind::Silent; });
    if (outcome.Veto() != nullptr && (enter.mode & kUserAbortable) != 0) {
        outcome.kind = ChangeOutcome::Kind::Vetoed;
    } else if (silent) {
        outcome.kind = ChangeOutcome::Kind::TimedOut;
    } else {
        make();
        if (!exit.name.empty()) {
            hub_.Announce(exit, timeout);
        }
    }
    return outcome;
}

ChangeOutcome Changes::State(ObjectKind kind, const std::string& name, const std::string& state,
                             bool forced, BusHub::Timeout timeout) {
    const auto object = service_.Find(kind, name);
    if (!object) {
        return {ChangeOutcome::Kind::Unknown, {}, {}};
    }
    BusEvent enter = EventAbout(*object, kind == ObjectKind::Pool ? "OSTREL.ChangePoolState.Enter"
                                                                  : "OSTREL.ChangeVolState.Enter");
    enter.oldState = StateNumber(object->state);
    enter.newState = StateNumber(state);
    enter.mode = forced ? 0 : kUserAbortable;
    return Carry(*object, enter, {}, timeout, [&] {
        service_.SetState(kind, object->guid, state);
        trace_.Add("state", std::string(KindName(kind)) + " " + name + " is now " + state);
    });
}

ChangeOutcome Changes::Rename(ObjectKind kind, const std::string& name, const std::string& newName,
                              BusHub::Timeout timeout) {
    const auto object = service_.Find(kind, name);
    if (!object) {
        return {ChangeOutcome::Kind::Unknown, {}, {}};
    }
    if (service_.Find(kind, newName)) {
        return {ChangeOutcome::Kind::NameTaken, {}, {}};
    }
    const bool pool = kind == ObjectKind::Pool;
    BusEvent enter =
        EventAbout(*object, pool ? "OSTREL.PoolRename.Enter" : "OSTREL.LVolumeRename.Enter");
    enter.oldName = name;
    enter.newName = newName;
    BusEvent exit = enter;
    exit.name = pool ? "" : "OSTREL.LVolumeRename.Exit";
    return Carry(*object, enter, exit, timeout, [&] {
        service_.Rename(kind, object->guid, newName);
        trace_.Add("rename", std::string(KindName(kind)) + " " + name + " is now " + newName);
    });
}

ChangeOutcome Changes::DeleteVolume(const std::string& name, BusHub::Timeout timeout) {
    const auto object = service_.Find(ObjectKind::Volume, name);
    if (!object) {
        return {ChangeOutcome::Kind::Unknown, {}, {}};
    }
    BusEvent exit = EventAbout(*object, "OSTREL.LVolumeDelete.Exit");
    // A deleted volume stays in the pool for a while under another GUID, from which it can be
    // salvaged.
    exit.newGuid = GuidFromName("deleted " + name);
    return Carry(*object, EventAbout(*object, "OSTREL.LVolumeDelete.Enter"), exit, timeout, [&] {
        service_.Remove(ObjectKind::Volume, object->guid);
        trace_.Add("delete", "volume " + name);
    });
}

ChangeOutcome Changes::Zid64(const std::string& name, BusHub::Timeout timeout) {
    const auto object = service_.Find(ObjectKind::Volume, name);
    if (!object) {
        return {ChangeOutcome::Kind::Unknown, {}, {}};
    }
    return Carry(*object, EventAbout(*object, "OSTREL.LVolZID64.Enter"),
                 EventAbout(*object, "OSTREL.LVolZID64.Exit"), timeout,
                 [&] { trace_.Add("zid64", "volume " + name); });
}

}  // namespace sim
