#include "sim/manageFile.h"

#include <cerrno>
#include <thread>

namespace sim {
namespace {

constexpr std::string_view kModeSwitch = "<virtualIO><datastream name=\"command\"/></virtualIO>";

}  // namespace

Conversation::Conversation(ManageContext& context, std::uint64_t number, int process)
    : context_(context), number_(number), process_(process) {
    Note("open", "");
}

Conversation::~Conversation() {
    Note("close", "");
}

std::string Conversation::Describe() const {
    return "file " + std::to_string(number_) + " of process " + std::to_string(process_);
}

void Conversation::Note(std::string_view what, std::string_view text) const {
    context_.trace.Add(what, Describe() + (text.empty() ? "" : " ") + std::string(text));
}

int Conversation::Write(std::string_view bytes, std::uint64_t offset) {
    const std::scoped_lock lock(mutex_);
    if (offset != 0) {
        Note("refused write", "at offset " + std::to_string(offset));
        return -EINVAL;
    }
    const int error = switched_ ? TakeRequest(bytes) : Switch(bytes);
    return error != 0 ? error : static_cast<int>(bytes.size());
}

int Conversation::Switch(std::string_view text) {
    Note("switch", text);
    if (context_.faults.Strikes(FaultPoint::Switch)) {
        return -EIO;
    }
    switched_ = text == kModeSwitch;
    return switched_ ? 0 : -EINVAL;
}

int Conversation::TakeRequest(std::string_view request) {
    if (context_.faults.Strikes(FaultPoint::Write)) {
        Note("failed write", request);
        return -EIO;
    }
    Note("request", request);
    // A reply is made when it is asked for, and distorted then: reading it twice gives it twice.
    reply_ = context_.requests.Answer(request);
    for (const Fault& fault : context_.faults.Strike(FaultPoint::Reply)) {
        reply_ = DistortReply(reply_, fault);
    }
    readFails_ = context_.faults.Strikes(FaultPoint::Read);
    cleared_ = context_.faults.Cleared();
    readyAt_ = std::chrono::steady_clock::now();
    for (const Fault& fault : context_.faults.Strike(FaultPoint::Delay)) {
        readyAt_ += std::chrono::milliseconds(fault.number);
    }
    Note("reply", std::to_string(reply_.size()) + " bytes " + reply_);
    return 0;
}

// False when the reader has given up.
bool Conversation::WaitUntilReady() const {
    while (std::chrono::steady_clock::now() < readyAt_ && !context_.stopping &&
           context_.faults.Cleared() == cleared_) {
        if (context_.interrupted()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

int Conversation::Read(std::span<char> buffer, std::uint64_t offset) {
    const std::scoped_lock lock(mutex_);
    if (!WaitUntilReady()) {
        return -EINTR;
    }
    if (readFails_) {
        Note("failed read", "at offset " + std::to_string(offset));
        return -EIO;
    }
    return ReadFromText(reply_, buffer, offset);
}

std::shared_ptr<OpenFile> Conversations::Open(int process) {
    if (context_.faults.Strikes(FaultPoint::Open)) {
        context_.trace.Add("failed open", "of process " + std::to_string(process));
        return nullptr;
    }
    const std::scoped_lock lock(mutex_);
    auto conversation = std::make_shared<Conversation>(context_, nextNumber_, process);
    open_[nextNumber_++] = conversation;
    std::erase_if(open_, [](const auto& entry) { return entry.second.expired(); });
    return conversation;
}

std::vector<std::string> Conversations::Describe() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> lines;
    for (const auto& entry : open_) {
        if (const auto conversation = entry.second.lock()) {
            lines.push_back(conversation->Describe());
        }
    }
    return lines;
}

}  // namespace sim
