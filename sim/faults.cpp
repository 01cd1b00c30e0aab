#include "sim/faults.h"

#include <algorithm>
#include <array>
#include <utility>

#include "sim/statuses.h"
#include "sim/textTools.h"

namespace sim {
namespace {

enum class Argument { None, Number, OptionalNumber, OptionalWord, Text };

struct FaultKind {
    std::string_view name;
    FaultPoint point;
    Argument argument;
};

constexpr std::array<FaultKind, 15> kKinds = {{
    {"refuse", FaultPoint::Reply, Argument::OptionalNumber},
    {"result", FaultPoint::Reply, Argument::Number},
    {"operation-result", FaultPoint::Reply, Argument::Number},
    {"malformed", FaultPoint::Reply, Argument::OptionalWord},
    {"bad-guid", FaultPoint::Reply, Argument::None},
    {"no-value", FaultPoint::Reply, Argument::None},
    {"size", FaultPoint::Reply, Argument::Number},
    {"reply", FaultPoint::Reply, Argument::Text},
    {"slow", FaultPoint::Delay, Argument::Number},
    {"eio-open", FaultPoint::Open, Argument::None},
    {"eio-switch", FaultPoint::Switch, Argument::None},
    {"eio-write", FaultPoint::Write, Argument::None},
    {"eio-read", FaultPoint::Read, Argument::None},
    {"bus-refuse", FaultPoint::BusRegister, Argument::OptionalNumber},
    {"bus-refuse-unregister", FaultPoint::BusUnregister, Argument::OptionalNumber},
}};

constexpr std::array<std::string_view, 6> kMalformed = {
    "cut", "empty", "not-xml", "no-result", "no-operation-result", "no-attribute"};

const FaultKind* KindOf(std::string_view name) {
    const auto* found = std::find_if(kKinds.begin(), kKinds.end(),
                                     [&](const FaultKind& kind) { return kind.name == name; });
    return found == kKinds.end() ? nullptr : found;
}

bool IsArgument(Argument wanted, const std::string& text) {
    switch (wanted) {
        case Argument::None:
            return text.empty();
        case Argument::Number:
            return ToNumber(text).has_value();
        case Argument::OptionalNumber:
            return text.empty() || ToNumber(text).has_value();
        case Argument::OptionalWord:
            return text.empty() ||
                   std::find(kMalformed.begin(), kMalformed.end(), text) != kMalformed.end();
        case Argument::Text:
            return true;
    }
    return false;
}

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

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): what, then how
std::string Malformed(const std::string& reply, const std::string& how) {
    if (how == "empty") {
        return {};
    }
    if (how == "not-xml") {
        return "The storage service has nothing to say.";
    }
    if (how == "no-result") {
        return WithResult(reply, 0, "");
    }
    if (how == "no-operation-result") {
        return WithResult(reply, 1, "");
    }
    if (how == "no-attribute") {
        return WithResult(WithResult(reply, 0, "<result />"), 1, "<result />");
    }
    return reply.substr(0, reply.size() / 2);
}

std::string WithBadGuid(const std::string& reply) {
    const std::string pool = WithElement(reply, "poolGUID", "<poolGUID>no-guid</poolGUID>");
    return WithElement(pool, "volumeGUID", "<volumeGUID>no-guid</volumeGUID>");
}

std::string WithoutValues(std::string reply) {
    for (const char* name : {"poolState", "poolGUID", "volumeState", "volumeGUID"}) {
        reply = WithElement(std::move(reply), name, "");
    }
    return reply;
}

// Blanks before the last end tag: a reader that loses one byte loses the end of the root element.
std::string PaddedTo(std::string reply, std::uint64_t size) {
    const auto at = reply.rfind("</");
    if (at != std::string::npos && reply.size() < size) {
        reply.insert(at, size - reply.size(), ' ');
    }
    return reply;
}

}  // namespace

std::string WriteResultReply(std::uint64_t status) {
    return "<writeResult><error>The request was refused (" + std::to_string(status) +
           ")</error></writeResult>";
}

std::string Faults::Add(Fault fault) {
    const FaultKind* kind = KindOf(fault.kind);
    if (kind == nullptr) {
        return "no fault is called \"" + fault.kind + "\"";
    }
    if (!IsArgument(kind->argument, fault.argument)) {
        return "\"" + fault.argument + "\" does not fit the fault \"" + fault.kind + "\"";
    }
    constexpr std::uint64_t kLargest = 1U << 20;
    if (kind->argument == Argument::Number && (kind->name == "size" || kind->name == "slow") &&
        ToNumber(fault.argument).value_or(0) > kLargest) {
        return "\"" + fault.argument + "\" is too large";
    }
    const std::scoped_lock lock(mutex_);
    faults_.push_back(std::move(fault));
    return {};
}

void Faults::Clear() {
    const std::scoped_lock lock(mutex_);
    faults_.clear();
}

std::vector<Fault> Faults::Waiting() const {
    const std::scoped_lock lock(mutex_);
    return {faults_.begin(), faults_.end()};
}

std::vector<Fault> Faults::Strike(FaultPoint point) {
    const std::scoped_lock lock(mutex_);
    std::vector<Fault> striking;
    for (auto it = faults_.begin(); it != faults_.end();) {
        if (KindOf(it->kind)->point == point) {
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
    if (fault.kind == "refuse") {
        return WriteResultReply(ToNumber(fault.argument).value_or(kRequestRefused));
    }
    if (fault.kind == "result") {
        return WithResult(reply, 0, ResultElement(fault.argument));
    }
    if (fault.kind == "operation-result") {
        return WithResult(reply, 1, ResultElement(fault.argument));
    }
    if (fault.kind == "malformed") {
        return Malformed(reply, fault.argument);
    }
    if (fault.kind == "bad-guid") {
        return WithBadGuid(reply);
    }
    if (fault.kind == "no-value") {
        return WithoutValues(reply);
    }
    if (fault.kind == "size") {
        return PaddedTo(reply, ToNumber(fault.argument).value_or(0));
    }
    return fault.argument;
}

}  // namespace sim
