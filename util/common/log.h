#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

/// Hands every write on to another buffer, one at a time and flushed at once, so that the operator
/// thread, the worker and the bus's thread can log together. It does not own the target.
class LogBuffer : public std::streambuf {
  public:
    explicit LogBuffer(std::streambuf& target) : target_(target) {}

    /// Whether anything could not be written. Nobody who logs can do anything about it.
    bool Failed() const { return failed_.load(std::memory_order_relaxed); }

    /// Takes note of something that could not even be composed.
    void Lose() { failed_.store(true, std::memory_order_relaxed); }

    /// Writes the last words; whatever is written behind them is dropped.
    void Seal(std::string_view lastWords);

  protected:
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int_type overflow(int_type character) override;
    int sync() override;

  private:
    std::streamsize Write(const char* text, std::streamsize length);
    int Flush();

    std::mutex mutex_;
    std::streambuf& target_;
    bool sealed_ = false;
    std::atomic<bool> failed_{false};
};

/// While it lives, everything written to std::cerr goes to `target`, integers in hexadecimal; its
/// end gives std::cerr its old buffer and flags back. Made and destroyed while one thread runs.
class LogRedirection {
  public:
    explicit LogRedirection(std::streambuf& target);
    ~LogRedirection();
    LogRedirection(const LogRedirection&) = delete;
    LogRedirection& operator=(const LogRedirection&) = delete;

    /// Whether anything could not be written to the target.
    bool Failed() const { return buffer_.Failed(); }

  private:
    LogBuffer buffer_;
    std::streambuf* oldBuffer_;
    std::ios_base::fmtflags oldFlags_;
};

/// Text that grows. An ordinary line needs no memory, so that a run that has none left can say so.
class LogText : public std::streambuf {
  public:
    LogText() { setp(room_, room_ + sizeof room_); }

    /// What was written so far.
    std::string_view View() const { return {pbase(), Size()}; }
    /// Whether there was no memory for more of it.
    bool Cut() const { return cut_; }

  protected:
    int_type overflow(int_type character) override;

  private:
    std::size_t Size() const { return static_cast<std::size_t>(pptr() - pbase()); }

    char room_[1000];
    std::string longer_;
    bool cut_ = false;
};

/// One entry of the log, composed apart and handed over whole and flushed when it is destroyed: no
/// line is torn by another thread's, and nobody touches the shared stream's format. Integers take
/// the log's number base; std::to_string gives the few that are decimal whatever the base.
class LogLine : public std::ostream {
  public:
    LogLine();
    ~LogLine() override;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

  private:
    LogText text_;
};

/// Writes the log's last words, for a process that is about to end while its other threads run:
/// what they log from here on is dropped. Without a log nothing happens.
void SealLog(std::string_view lastWords);

/// Logs `what`, ": " and the system's text for `error`, an errno, as perror would: perror itself
/// writes to the descriptor behind the curses screen. Returns its status (`SystemErrorStatus`).
int LogSystemError(const char* what, int error);
