#include "sim/faults.h"

#include <iterator>
#include <limits>
#include <utility>

#include "sim/statuses.h"
#include "sim/textTools.h"

namespace sim {

/// What tells one kind of fault from another.
struct FaultKind {
    enum class Argument { Word, Number, OptionalNumber, Text };

    std::string_view name{};
    FaultPoint point = FaultPoint::Reply;
    /// What becomes of a reply at the point `Reply`; null for a kind of another point.
    std::string (*distort)(const std::string& reply, const Fault& fault) = nullptr;
    Argument argument = Argument::Word;
    std::string_view word{};   ///< the one `Word` of this row; empty where there is no argument
    std::uint64_t number = 0;  ///< of a fault without a number of its own
    std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
};

namespace {

// Replaces the nth (from 0) "<result value=...>" element; as it was when there is none.
std::string WithResult(std::string reply, int which, const std::string& element) {
    constexpr std::string_view kStart = "<result ";
    auto at = reply.find(kStart);
    for (; which > 0 && at != std::string::npos; --which) {
        at = reply.find(kStart, at + 1);
    }
    if (at != std::string::npos) {
        reply.replace(at, reply.find('>', at) + 1 - at, element);
    }
    return reply;
}

std::string ResultElement(const std::string& value) {
    return "<result value=\"" + value + "\"/>";
}

// Replaces an element with its content; as it was when there is none.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): in the order of the text
std::string WithElement(std::string reply, const std::string& name, const std::string& element) {
    const std::string endTag = "</" + name + ">";
    const auto begin = reply.find("<" + name + ">");
    const auto end = reply.find(endTag);
    if (begin != std::string::npos && end != std::string::npos) {
        reply.replace(begin, end + endTag.size() - begin, element);
    }
    return reply;
}

std::string Refused(const std::string& /*reply*/, const Fault& fault) {
    return WriteResultReply(fault.number);
}

std::string WithOtherResult(const std::string& reply, const Fault& fault) {
    return WithResult(reply, 0, ResultElement(fault.argument));
}

std::string WithOtherOperationResult(const std::string& reply, const Fault& fault) {
    return WithResult(reply, 1, ResultElement(fault.argument));
}

std::string Nothing(const std::string& /*reply*/, const Fault& /*fault*/) {
    return {};
}

std::string Half(const std::string& reply, const Fault& /*fault*/) {
    return reply.substr(0, reply.size() / 2);
}

std::string NoXml(const std::string& /*reply*/, const Fault& /*fault*/) {
    return "The storage service has nothing to say.";
}

std::string WithoutResult(const std::string& reply, const Fault& /*fault*/) {
    return WithResult(reply, 0, "");
}

std::string WithoutOperationResult(const std::string& reply, const Fault& /*fault*/) {
    return WithResult(reply, 1, "");
}

std::string WithoutAttributes(const std::string& reply, const Fault& /*fault*/) {
    return WithResult(WithResult(reply, 0, "<result />"), 1, "<result />");
}

std::string WithBadGuid(const std::string& reply, const Fault& /*fault*/) {
    const std::string pool = WithElement(reply, "poolGUID", "<poolGUID>no-guid</poolGUID>");
    return WithElement(pool, "volumeGUID", "<volumeGUID>no-guid</volumeGUID>");
}

std::string WithoutValues(const std::string& reply, const Fault& /*fault*/) {
    std::string bare = reply;
    for (const char* name : {"poolState", "poolGUID", "volumeState", "volumeGUID"}) {
        bare = WithElement(std::move(bare), name, "");
    }
    return bare;
}

// Blanks before the last end tag: a reader that loses one byte loses the end of the root element.
std::string PaddedToSize(const std::string& reply, const Fault& fault) {
    std::string padded = reply;
    const auto at = reply.rfind("</");
    if (at != std::string::npos && reply.size() < fault.number) {
        padded.insert(at, fault.number - reply.size(), ' ');
    }
    return padded;
}

std::string OwnText(const std::string& /*reply*/, const Fault& fault) {
    return fault.argument;
}

using Argument = FaultKind::Argument;

constexpr std::uint64_t kLargestReply = 1U << 20;  // bytes
constexpr std::uint64_t kLongestDelay = 1U << 20;  // milliseconds

constexpr FaultKind kKinds[] = {
    {.name = "refuse",
     .distort = Refused,
     .argument = Argument::OptionalNumber,
     .number = kRequestRefused},
    {.name = "result", .distort = WithOtherResult, .argument = Argument::Number},
    {.name = "operation-result", .distort = WithOtherOperationResult, .argument = Argument::Number},
    {.name = "malformed", .distort = Half},
    {.name = "malformed", .distort = Half, .word = "cut"},
    {.name = "malformed", .distort = Nothing, .word = "empty"},
    {.name = "malformed", .distort = NoXml, .word = "not-xml"},
    {.name = "malformed", .distort = WithoutResult, .word = "no-result"},
    {.name = "malformed", .distort = WithoutOperationResult, .word = "no-operation-result"},
    {.name = "malformed", .distort = WithoutAttributes, .word = "no-attribute"},
    {.name = "bad-guid", .distort = WithBadGuid},
    {.name = "no-value", .distort = WithoutValues},
    {.name = "size",
     .distort = PaddedToSize,
     .argument = Argument::Number,
     .largest = kLargestReply},
    {.name = "reply", .distort = OwnText, .argument = Argument::Text},
    {.name = "slow",
     .point = FaultPoint::Delay,
     .argument = Argument::Number,
     .largest = kLongestDelay},
    {.name = "eio-open", .point = FaultPoint::Open},
    {.name = "eio-switch", .point = FaultPoint::Switch},
    {.name = "eio-write", .point = FaultPoint::Write},
    {.name = "eio-read", .point = FaultPoint::Read},
    {.name = "bus-refuse",
     .point = FaultPoint::BusRegister,
     .argument = Argument::OptionalNumber,
     .number = kRequestRefused},
    {.name = "bus-refuse-unregister",
     .point = FaultPoint::BusUnregister,
     .argument = Argument::OptionalNumber,
     .number = kRequestRefused},
};

bool Fits(const FaultKind& kind, const std::string& argument) {
    const auto number = ToNumber(argument);
    switch (kind.argument) {
        case Argument::Word:
            return argument == kind.word;
        case Argument::Number:
            return number && *number <= kind.largest;
        case Argument::OptionalNumber:
            return argument.empty() || (number && *number <= kind.largest);
        case Argument::Text:
            return true;
    }
    return false;
}

}  // namespace

std::string_view NameOf(const Fault& fault) {
    return fault.kind->name;
}

std::string WriteResultReply(std::uint64_t status) {
    return "<writeResult><error>The request was refused (" + std::to_string(status) +
           ")</error></writeResult>";
}

std::string Faults::Add(const FaultOrder& order) {
    bool known = false;
    for (const FaultKind& kind : kKinds) {
        known = known || kind.name == order.kind;
        if (kind.name == order.kind && Fits(kind, order.argument)) {
            const std::scoped_lock lock(mutex_);
            faults_.push_back({&kind, order.argument,
                               ToNumber(order.argument).value_or(kind.number), order.after,
                               order.next});
            return {};
        }
    }
    return known ? "\"" + order.argument + "\" does not fit the fault \"" + order.kind + "\""
                 : "no fault is called \"" + order.kind + "\"";
}

void Faults::Clear() {
    const std::scoped_lock lock(mutex_);
    faults_.clear();
    ++cleared_;
}

std::uint64_t Faults::Cleared() const {
    const std::scoped_lock lock(mutex_);
    return cleared_;
}

std::vector<Fault> Faults::Waiting() const {
    const std::scoped_lock lock(mutex_);
    return {faults_.begin(), faults_.end()};
}

std::vector<Fault> Faults::Strike(FaultPoint point) {
    const std::scoped_lock lock(mutex_);
    std::vector<Fault> striking;
    for (auto it = faults_.begin(); it != faults_.end();) {
        if (it->kind->point == point) {
            if (it->after > 0) {
                --it->after;
            } else {
                striking.push_back(*it);
                --it->next;
            }
        }
        it = it->next == 0 ? faults_.erase(it) : std::next(it);
    }
    return striking;
}

std::string DistortReply(const std::string& reply, const Fault& fault) {
    return fault.kind->distort(reply, fault);
}

}  // namespace sim
