#include <cstring>
#include <exception>
#include <mutex>
#include <utility>

#include "util/common/clock.h"
#include "util/common/errors.h"
#include "util/common/heb.h"
#include "util/common/log.h"
#include "util/common/neverDestroyed.h"

namespace {

constexpr std::int64_t kPollMilliseconds = 100;
/// A released handler sees so within its poll; twice that is patience enough.
constexpr std::int64_t kAnswerMilliseconds = 2 * kPollMilliseconds;
constexpr std::int64_t kAnswerStep = 5;
/// Where every family's event data has its GUID.
constexpr std::size_t kGUIDOffset = offsetof(HEBStateChange, guid);

bool Matches(const PVKey& watched, const void* eventData) {
    if (eventData == nullptr) {
        return false;
    }
    GUID_t guid;
    std::memcpy(&guid, static_cast<const unsigned char*>(eventData) + kGUIDOffset, sizeof guid);
    return watched.IsMatch(&guid);
}

bool IsSet(const std::atomic<bool>& flag) {
    return flag.load(std::memory_order_relaxed);
}

/// The start of a handler's line.
std::string Heading(const char* position, const HEBFamilyFacts& facts) {
    return std::string(position) + " HEBC_" + facts.name + "_Handler -- ";
}

/// Counts one while it lives.
class Counted {
  public:
    explicit Counted(std::atomic<int>& count) : count_(count) { count_.fetch_add(1); }
    ~Counted() { count_.fetch_sub(1); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    std::atomic<int>& count_;
};

struct RetiredConsumers {
    std::mutex mutex;
    std::unique_ptr<HEBConsumer> last;  // each owns the one before it
};

RetiredConsumers& Retired() {
    static NeverDestroyed<RetiredConsumers> retired;
    return *retired;
}

}  // namespace

HEBConsumer::HEBConsumer(const char* name) : name_(name) {}

HEBConsumer::~HEBConsumer() {
    // A handler looks at its consumer until it has answered, so there is no end to this patience.
    ReleaseHandlers();
    while (handling_.load() != 0) {
        AwaitHandlers();
    }
}

void HEBConsumer::Retire(std::unique_ptr<HEBConsumer> consumer) {
    if (consumer == nullptr || !consumer->offeredToBus_) {
        return;
    }
    consumer->ReleaseHandlers();
    consumer->AwaitHandlers();
    RetiredConsumers& retired = Retired();
    const std::lock_guard lock(retired.mutex);
    // Linked, since a list would want memory where there may be none.
    consumer->retiredBefore_ = std::move(retired.last);
    retired.last = std::move(consumer);
}

void HEBConsumer::SilenceRetired() {
    RetiredConsumers& retired = Retired();
    const std::lock_guard lock(retired.mutex);
    for (HEBConsumer* consumer = retired.last.get(); consumer != nullptr;
         consumer = consumer->retiredBefore_.get()) {
        // One that was not silent yet may be at its line: the log stays until that is written.
        consumer->silent_.store(true);
        consumer->AwaitHandlers();
    }
}

int HEBConsumer::Register(HEBFamily family, HEBCallback callback, const PVKey& key,
                          HEBChangeFlag changeRequired) {
    if (IsRegistered(family)) {
        return zERR_INVALID_STATE;
    }
    // A registration that fails may have reached the bus all the same.
    offeredToBus_ = true;
    Slots& slots = slots_[static_cast<std::size_t>(family)];
    const HEBFamilyFacts& facts = HEBFactsOf(family);
    try {
        slots.key.reset(bus_.EventRegister(facts.eventName, name_, this, callback));
    } catch (const std::exception& error) {
        LogLine() << "Exception while registering for HEB event " << facts.eventName << ":  "
                  << error.what() << "\nutil/common/heb[635]\n";
        return zEVENT_REGISTRATION_FAILED;
    }
    // Published last and whole: what the bus delivers up to here is an early event.
    slots.registrations.push_back(std::make_unique<Registration>(key, std::move(changeRequired)));
    slots.current.store(slots.registrations.back().get(), std::memory_order_release);
    return 0;
}

int HEBConsumer::Unregister(HEBFamily family) {
    Slots& slots = slots_[static_cast<std::size_t>(family)];
    Registration* current = slots.current.load(std::memory_order_relaxed);
    // Ended before the bus is asked: this releases a handler that the bus may be waiting for.
    if (current == nullptr || !current->End()) {
        return zERR_INVALID_STATE;
    }
    // Forgotten even when the bus refuses: it may then go on to deliver, and what it delivers is an
    // early event.
    try {
        bus_.EventUnregister(slots.key.release());
    } catch (const std::exception& error) {
        LogLine() << "util/common/heb[225] Could not unregister from HEB " << error.what() << '\n';
    }
    return 0;
}

void HEBConsumer::Registration::RequireChange() {
    const std::lock_guard lock(ending);
    if (IsSet(registered)) {
        changeRequired->store(true, std::memory_order_relaxed);
    }
}

bool HEBConsumer::Registration::End() {
    const std::lock_guard lock(ending);
    return registered.exchange(false);
}

bool HEBConsumer::IsRegistered(HEBFamily family) const {
    const Slots& slots = slots_[static_cast<std::size_t>(family)];
    const Registration* current = slots.current.load(std::memory_order_relaxed);
    return current != nullptr && IsSet(current->registered);
}

void HEBConsumer::ReleaseHandlers() {
    for (const Slots& slots : slots_) {
        for (const auto& registration : slots.registrations) {
            registration->End();
        }
    }
}

void HEBConsumer::AwaitHandlers() const {
    for (std::int64_t waited = 0; waited < kAnswerMilliseconds && handling_.load() != 0;
         waited += kAnswerStep) {
        Ostrel::LB_delay(kAnswerStep);
    }
}

std::uint32_t HEBConsumer::Handle(HEBFamily family, EventBlock* event) {
    // Counted before the first look at a flag. Those looks, the count and `Retire`'s and
    // `SilenceRetired`'s stores are sequentially consistent: either this handler sees their flag or
    // they see it counted, and wait.
    const Counted atWork(handling_);
    try {
        return silent_.load() ? kHEBAccept : Answer(family, event);
    } catch (const std::exception&) {
        // The bus library is C and knows no exceptions. What could not be looked at is let pass.
        return kHEBAccept;
    }
}

std::uint32_t HEBConsumer::Answer(HEBFamily family, EventBlock* event) {
    const HEBFamilyFacts& facts = HEBFactsOf(family);
    // Read once: the family may be registered anew while this event is looked at.
    Registration* registration =
        slots_[static_cast<std::size_t>(family)].current.load(std::memory_order_acquire);
    if (registration == nullptr || !registration->registered.load()) {
        LogLine() << Heading("util/common/heb[540]", facts) << "early event.\n";
        return kHEBAccept;
    }
    if (event->notifyType != kEBEventNotifyType) {
        LogLine() << Heading("util/common/heb[547]", facts) << "not a EBEventNotifyType("
                  << event->notifyType << ") we care about.\n";
        return kHEBAccept;
    }
    if (!Matches(registration->watched, event->eventData)) {
        LogLine() << Heading("util/common/heb[556]", facts) << "not the " << facts.object
                  << " we care about.\n";
        return kHEBAccept;
    }
    if (facts.request != nullptr) {
        return HandleChange(facts, *registration, event);
    }
    LogLine line;
    line << Heading("util/common/heb[563]", facts) << facts.happened << '\n';
    facts.report(line, event->eventData);
    return kHEBAccept;
}

std::uint32_t HEBConsumer::HandleChange(const HEBFamilyFacts& facts, Registration& registration,
                                        EventBlock* event) {
    const auto& change = *static_cast<const HEBStateChange*>(event->eventData);
    if (change.stateA == change.stateB) {
        LogLine line;
        line << Heading("util/common/heb[571]", facts) << facts.object << " state did not change.";
        if (facts.tellsMode) {
            line << "   The mode is 0x" << std::hex << change.modeFlags;
        }
        line << '\n';
        return kHEBAccept;
    }
    if ((change.modeFlags & VOLMODE_USER_ABORTABLE) != 0) {
        LogLine() << Heading("util/common/heb[584]", facts) << "denyed " << facts.request
                  << " request because VOLMODE_USER_ABORTABLE present.\n";
        event->refusalStatus = facts.refusalStatus;
        return kHEBVeto;
    }
    // Said before the flag is set: a run that sees the flag may end, and its log with it.
    LogLine() << Heading("util/common/heb[592]", facts) << "accepted " << facts.request
              << " request because VOLMODE_USER_ABORTABLE not present.\n";
    registration.RequireChange();
    // Whichever the owner clears first lets the change go on; see `PoolLock::Unlock`.
    while (IsSet(registration.registered) && IsSet(*registration.changeRequired)) {
        Ostrel::LB_delay(kPollMilliseconds);
    }
    return kHEBAccept;
}
