#pragma once

#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>

/// The system's page cache below a pass that reads a device from its start to its end. While the
/// device makes the pass wait, the pass reads more at once, and the cache is asked for what comes
/// next, so that the device works while the pass does something else. Where a device is read in
/// larger requests than it can be asked in, a trial tells whether that pays. What the pass has
/// brought into the cache is taken out again behind it. Nothing is asked of a device that keeps up,
/// or that has just failed to read: each bad block of what was asked for would cost its time once
/// more. Used by one thread.
///
/// Offsets are in bytes. Whatever the system refuses is left undone: nothing depends on it.
class DeviceCache {
  public:
    /// Begins with a device that takes `request` bytes at once, 0 where it does not tell. Its
    /// descriptor is the caller's, open until another `Begin`.
    void Begin(int descriptor, std::uint64_t request);

    /// What is at `offset` will be read now.
    void WillRead(std::uint64_t offset);

    /// The read that was announced took `time`.
    void HaveRead(std::chrono::steady_clock::duration time);

    /// A read failed.
    void HaveFailed();

    /// Whether the pass waits for the device of late, so that large reads pay.
    [[nodiscard]] bool MakesWait() const { return piece_ < waitsUntil_; }

  private:
    /// Counted in pieces of a MiB. How far the asking is ahead of the reading, and looking at what
    /// is cached already ahead of that. Both are what the pass adds to the cache at most.
    static constexpr std::uint64_t kAskedAhead = 16;
    static constexpr std::uint64_t kLookedAhead = 32;
    static constexpr std::uint64_t kFirstPause = 1024;

    void Enter(std::uint64_t piece);
    void Judge(std::uint64_t piece);
    void Conclude(std::uint64_t piece);
    void StopWaiting();
    void Look(std::uint64_t piece);
    void Ask(std::uint64_t piece, std::uint64_t last);
    void Forget(std::uint64_t piece);

    int descriptor_ = -1;
    std::uint64_t request_ = 0;  // how much is asked for at once
    std::uint64_t piece_ = 0;    // the one that is being read, once `begun_`
    bool begun_ = false;
    std::chrono::steady_clock::duration time_{};  // that reading this piece has taken
    std::uint64_t waitsUntil_ = 0;                // before this piece the device makes wait
    std::uint64_t calmUntil_ = 0;                 // before this piece it may take what it likes
    // A sample is a few pieces in a row that were waited for.
    unsigned sampled_ = 0;                         // how many there are
    std::chrono::steady_clock::duration sum_{};    // what they took
    std::chrono::steady_clock::duration plain_{};  // what those of the last sample took
    bool trying_ = false;                          // whether this sample was asked for, in a trial
    std::uint64_t triedUntil_ = 0;                 // before this piece no trial begins
    std::uint64_t trialPause_ = kFirstPause;       // behind the next trial that fails
    std::uint64_t askUntil_ = 0;                   // before this piece more is asked for
    std::uint64_t asked_ = 0;                      // the first piece that was not asked for
    std::bitset<2 * kLookedAhead> ours_;  // which of the pieces nearby were not cached before
};
