#pragma once

#include <mutex>

/// Whose turn it is to touch the terminal: the operator thread holds it while the screen stands,
/// but for its waits, so that the thread that ends an interrupted run can give the terminal back.
using TerminalTurn = std::mutex;

/// While it lives, the operator thread waits for something else and does not touch the terminal.
/// Null: nobody shares it.
class TerminalLetGo {
  public:
    explicit TerminalLetGo(TerminalTurn* turn) : turn_(turn) {
        if (turn_ != nullptr) {
            turn_->unlock();
        }
    }
    ~TerminalLetGo() {
        if (turn_ != nullptr) {
            turn_->lock();
        }
    }
    TerminalLetGo(const TerminalLetGo&) = delete;
    TerminalLetGo& operator=(const TerminalLetGo&) = delete;

  private:
    TerminalTurn* turn_;
};
