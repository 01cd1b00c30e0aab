#include "util/ostrelscan/signalWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "util/common/fileDescriptor.h"
#include "util/common/log.h"
#include "util/common/signalMask.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

/// How long the end of the process waits for the operator thread: until it counts as stuck, and
/// then.
constexpr std::chrono::milliseconds kPolite{500};
constexpr std::chrono::milliseconds kPatience{2000};
constexpr std::chrono::milliseconds kLook{10};

/// The signals to wait for: those that would end the process.
sigset_t EndingSignals() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN && sigismember(&blocked, signal) == 0) {
            sigaddset(&ending, signal);
        }
    }
    return ending;
}

/// The terminal as it was before curses.
class TerminalModes {
  public:
    TerminalModes() {
        for (const int stream : {STDOUT_FILENO, STDIN_FILENO}) {
            if (tcgetattr(stream, &modes_) == 0) {
                stream_ = stream;
                return;
            }
        }
    }

    void Restore() const {
        if (stream_ >= 0) {
            tcsetattr(stream_, TCSANOW, &modes_);
        }
    }

    /// Whether the terminal takes more now. One that is stopped, or that nobody reads, is full.
    bool TakesOutput() const {
        pollfd terminal{stream_, POLLOUT, 0};
        return poll(&terminal, 1, 0) > 0;
    }

    /// Lets somebody whom the terminal holds up write on: what it has not taken yet is dropped, and
    /// a stop by its key is ended.
    void DropOutput() const {
        termios modes{};
        if (stream_ >= 0 && tcgetattr(stream_, &modes) == 0) {
            modes.c_iflag &= ~static_cast<tcflag_t>(IXON);
            tcsetattr(stream_, TCSANOW, &modes);
            tcflush(stream_, TCOFLUSH);
        }
    }

    /// Whether there was a terminal and it has gone away.
    bool Vanished() const {
        termios now{};
        return stream_ >= 0 && tcgetattr(stream_, &now) != 0 && errno == EIO;
    }

  private:
    int stream_ = -1;
    termios modes_{};
};

}  // namespace

class SignalWatch::State {
  public:
    const sigset_t& Watched() const { return watched_; }
    int Descriptor() const { return event_.Get(); }
    bool Taken() const { return taken_ != 0; }
    TerminalTurn& Turn() { return turn_; }

    void SetScreen(std::function<void()> giveBack);
    void SetPass(ScanThread* pass);
    void SettleStatus(int exitStatus);
    void CloseRecord();

    /// What the watch's thread does.
    [[noreturn]] void Run();

  private:
    void Take(int signal);
    bool EchoesHangup(int signal) const;
    bool WaitForTurn();
    void FreeOperator() const;
    void GiveTerminalBack();
    [[noreturn]] void EndByDefault(int signal);
    void SealRecord(int signal) const;
    [[noreturn]] void EndAtOnce(int signal);

    const sigset_t watched_ = EndingSignals();
    const TerminalModes modes_;
    const pthread_t operator_ = pthread_self();
    const FileDescriptor event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> taken_{0};  // the first signal
    TerminalTurn turn_;
    std::mutex mutex_;  // of what stands below; taken behind the turn
    std::function<void()> giveBack_;
    ScanThread* pass_ = nullptr;
    std::optional<int> exitStatus_;
    bool recordClosed_ = false;
};

void SignalWatch::State::SetScreen(std::function<void()> giveBack) {
    const std::lock_guard lock(mutex_);
    giveBack_ = std::move(giveBack);
}

void SignalWatch::State::SetPass(ScanThread* pass) {
    const std::lock_guard lock(mutex_);
    pass_ = pass;
}

void SignalWatch::State::SettleStatus(int exitStatus) {
    const std::lock_guard lock(mutex_);
    exitStatus_ = exitStatus;
    if (Taken()) {
        LogLine() << "Note: SIG" << sigabbrev_np(taken_) << " asked this run to end\n";
    }
}

void SignalWatch::State::CloseRecord() {
    const std::lock_guard lock(mutex_);
    recordClosed_ = true;
}

void SignalWatch::State::Run() {
    for (;;) {
        const int signal = sigwaitinfo(&watched_, nullptr);
        if (signal < 0 || EchoesHangup(signal)) {
            continue;
        }
        if (signal == SIGQUIT) {
            EndByDefault(signal);
        }
        if (Taken()) {
            EndAtOnce(signal);
        }
        Take(signal);
    }
}

void SignalWatch::State::Take(int signal) {
    const std::lock_guard lock(mutex_);
    taken_ = signal;
    if (pass_ != nullptr) {
        pass_->RequestStop();
    }
    eventfd_write(event_.Get(), 1);
}

/// A closed session is told more than once, by the kernel and by the shell. That is one wish.
bool SignalWatch::State::EchoesHangup(int signal) const {
    return signal == SIGHUP && Taken() && modes_.Vanished();
}

/// Takes the turn for good; false when the operator thread is stuck with it.
bool SignalWatch::State::WaitForTurn() {
    for (auto waited = kLook; waited <= kPatience; waited += kLook) {
        if (turn_.try_lock()) {
            return true;
        }
        if (waited > kPolite) {
            FreeOperator();
        }
        std::this_thread::sleep_for(kLook);
    }
    return turn_.try_lock();
}

/// A terminal that is slow, stopped or read by nobody holds the operator thread. A write that waits
/// does not notice by itself that there is room again; the signal makes it look.
void SignalWatch::State::FreeOperator() const {
    modes_.DropOutput();
    pthread_kill(operator_, SIGWINCH);
}

void SignalWatch::State::GiveTerminalBack() {
    const bool inTurn = WaitForTurn();
    const std::lock_guard lock(mutex_);
    if (!inTurn) {
        modes_.Restore();
    } else if (giveBack_) {
        if (!modes_.TakesOutput()) {
            modes_.DropOutput();
        }
        giveBack_();
    }
}

void SignalWatch::State::EndByDefault(int signal) {
    GiveTerminalBack();
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, signal);
    pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    raise(signal);
    _exit(1);
}

/// Without memory of its own: the run may have none left.
void SignalWatch::State::SealRecord(int signal) const {
    char note[64] = "";
    if (!exitStatus_) {
        std::snprintf(note, sizeof note, "Note: SIG%s ended this run at once, after SIG%s\n",
                      sigabbrev_np(signal), sigabbrev_np(taken_));
    }
    char words[96] = "";
    std::snprintf(words, sizeof words, "%s</ostrelscan>\n", note);
    SealLog(words);
}

void SignalWatch::State::EndAtOnce(int signal) {
    GiveTerminalBack();
    std::unique_lock lock(mutex_);
    if (exitStatus_) {
        // The rest is a matter of moments, unless the log or the output is stuck.
        lock.unlock();
        std::this_thread::sleep_for(kPatience);
        lock.lock();
    }
    if (!recordClosed_) {
        SealRecord(signal);
    }
    _exit(exitStatus_.value_or(1));
}

SignalWatch::SignalWatch() : state_(std::make_shared<State>()) {
    if (Descriptor() < 0) {
        return;
    }
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &state_->Watched(), &before);
    try {
        const SignalsHeldOff fromTheThread;
        // Never joined: it lasts until the process ends, and may be what ends it.
        std::thread([state = state_] { state->Run(); }).detach();
    } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
}

bool SignalWatch::Taken() const {
    return state_->Taken();
}

int SignalWatch::Descriptor() const {
    return state_->Descriptor();
}

TerminalTurn& SignalWatch::Turn() {
    return state_->Turn();
}

void SignalWatch::SetScreen(std::function<void()> giveBack) {
    state_->SetScreen(std::move(giveBack));
}

void SignalWatch::SetPass(ScanThread* pass) {
    state_->SetPass(pass);
}

void SignalWatch::SettleStatus(int exitStatus) {
    state_->SettleStatus(exitStatus);
}

void SignalWatch::CloseRecord() {
    state_->CloseRecord();
}

TerminalHold::TerminalHold(SignalWatch* signals, std::function<void()> giveBack)
    : signals_(signals) {
    if (signals_ != nullptr) {
        turn_ = std::unique_lock(signals_->Turn());
        signals_->SetScreen(std::move(giveBack));
    }
}

TerminalHold::~TerminalHold() {
    if (signals_ != nullptr) {
        signals_->SetScreen({});
    }
}

KeptInterrupts::KeptInterrupts() {
    sigaction(SIGINT, nullptr, &interrupt_);
    sigaction(SIGTERM, nullptr, &terminate_);
}

KeptInterrupts::~KeptInterrupts() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGTERM, &terminate_, nullptr);
}
