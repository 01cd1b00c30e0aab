#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <mutex>

#include "util/ostrelscan/terminalTurn.h"

class ScanThread;

/// Takes the signals that ask a run to end, on a thread of its own: no handler runs, and nothing
/// that the other threads wait for delays it.
///
/// The first SIGINT, SIGTERM or SIGHUP stops the pass and ends every wait for a key; the run then
/// ends by itself. A second one, and SIGQUIT, end the process from here once the terminal is given
/// back. A signal that was ignored or blocked at the start stays so. One for a process; the
/// operator thread makes it and calls it. Where its thread cannot be had, signals end the process
/// as they do by default.
class SignalWatch {
  public:
    SignalWatch();
    /// The signals stay blocked: the run has its status, which none of them changes any more.
    ~SignalWatch() = default;
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// Whether a signal has asked the run to end.
    bool Taken() const;
    /// Can be read from then on, and nobody does; -1 where there was none to be had.
    int Descriptor() const;

    /// Held by whoever uses the terminal.
    TerminalTurn& Turn();
    /// How the terminal is given back by the watch's thread, in its turn: the operator thread never
    /// gets the turn again. Empty: no screen stands.
    void SetScreen(std::function<void()> giveBack);
    /// The pass that the first signal stops; null for none.
    void SetPass(ScanThread* pass);

    /// The dialogue is over, and with it the process's exit status. Logs the signal that ended it.
    void SettleStatus(int exitStatus);
    /// The operator thread ends the log's record from here on, and no signal does.
    void CloseRecord();

  private:
    class State;

    std::shared_ptr<State> state_;  // the thread's too, which lives as long as the process
};

/// Holds the terminal, for as long as this lives, for the operator thread, and says how it is given
/// back. Null: nobody watches the signals.
class TerminalHold {
  public:
    TerminalHold(SignalWatch* signals, std::function<void()> giveBack);
    ~TerminalHold();
    TerminalHold(const TerminalHold&) = delete;
    TerminalHold& operator=(const TerminalHold&) = delete;

    /// What `TerminalLetGo` takes.
    TerminalTurn* Turn() { return turn_.mutex(); }

  private:
    SignalWatch* signals_;
    std::unique_lock<TerminalTurn> turn_;
};

/// Stops a pass at the first signal, for as long as this lives. Null: nobody watches the signals.
class StoppedBySignals {
  public:
    StoppedBySignals(SignalWatch* signals, ScanThread& pass) : signals_(signals) { Set(&pass); }
    ~StoppedBySignals() { Set(nullptr); }
    StoppedBySignals(const StoppedBySignals&) = delete;
    StoppedBySignals& operator=(const StoppedBySignals&) = delete;

  private:
    void Set(ScanThread* pass) {
        if (signals_ != nullptr) {
            signals_->SetPass(pass);
        }
    }

    SignalWatch* signals_;
};

/// Keeps what SIGINT and SIGTERM do while curses begins, which would take them for itself.
class KeptInterrupts {
  public:
    KeptInterrupts();
    ~KeptInterrupts();
    KeptInterrupts(const KeptInterrupts&) = delete;
    KeptInterrupts& operator=(const KeptInterrupts&) = delete;

  private:
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
};
