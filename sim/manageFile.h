#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/faults.h"
#include "sim/openFile.h"
#include "sim/requests.h"
#include "sim/trace.h"

namespace sim {

/// What the conversations share.
struct ManageContext {
    Requests& requests;
    Faults& faults;
    Trace& trace;
    /// True when the call that waits now has been given up by its caller.
    std::function<bool()> interrupted;
    std::atomic<bool> stopping{false};  ///< true: no reply is slow any more
};

/// One open management file: its mode switch, and then one exchange after the other. Reads of a
/// slow reply wait; a write that comes meanwhile waits for them.
class Conversation : public OpenFile {
  public:
    /// A file that `process` has opened; the number tells it from others.
    Conversation(ManageContext& context, std::uint64_t number, int process);
    ~Conversation() override;

    int Read(std::span<char> buffer, std::uint64_t offset) override;
    int Write(std::string_view bytes, std::uint64_t offset) override;
    void Flush() override { Note("flush", ""); }

    /// "file 1 of process 4711".
    std::string Describe() const;

  private:
    int Switch(std::string_view text);
    int TakeRequest(std::string_view request);
    bool WaitUntilReady() const;
    void Note(std::string_view what, std::string_view text) const;

    ManageContext& context_;
    const std::uint64_t number_;
    const int process_;
    std::mutex mutex_;
    bool switched_ = false;
    bool readFails_ = false;
    std::string reply_;
    std::chrono::steady_clock::time_point readyAt_{};
    std::uint64_t cleared_ = 0;  // when the reply's delay began
};

/// The open management files. Any thread may call it.
class Conversations {
  public:
    explicit Conversations(ManageContext& context) : context_(context) {}

    /// A new conversation of `process`; null when an injected fault makes the opening fail.
    std::shared_ptr<OpenFile> Open(int process);

    /// What is open now, one line each.
    std::vector<std::string> Describe() const;

  private:
    ManageContext& context_;
    mutable std::mutex mutex_;
    std::uint64_t nextNumber_ = 1;
    std::map<std::uint64_t, std::weak_ptr<Conversation>> open_;
};

}  // namespace sim
