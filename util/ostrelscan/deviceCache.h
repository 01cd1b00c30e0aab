#pragma once

#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>

/// The system's page cache below a pass that reads a device from its start to its end. While the
/// device makes the pass wait, the cache is asked for what comes next, so that the device always
/// has work; what the pass has brought into it is taken out again behind the pass. Nothing is asked
/// of a device that keeps up, or that has just failed to read: each bad block of what was asked for
/// would cost its time once more. Used by one thread.
///
/// Offsets are in bytes. Whatever the system refuses is left undone: nothing depends on it.
class DeviceCache {
  public:
    /// Begins with a device; its descriptor is the caller's, open until another `Begin`, or none.
    void Begin(int descriptor);

    /// What is at `offset` will be read now.
    void WillRead(std::uint64_t offset);

    /// The read that was announced took `time`.
    void HaveRead(std::chrono::steady_clock::duration time);

    /// A read failed.
    void HaveFailed();

  private:
    /// Counted in pieces of a MiB. How far the asking is ahead of the reading, and looking at what
    /// is cached already ahead of that. Both are what the pass adds to the cache at most.
    static constexpr std::uint64_t kAskedAhead = 16;
    static constexpr std::uint64_t kLookedAhead = 32;

    void Enter(std::uint64_t piece);
    void Look(std::uint64_t piece);
    void Ask(std::uint64_t piece);
    void Forget(std::uint64_t piece);

    int descriptor_ = -1;
    std::uint64_t piece_ = 0;  // the one that is being read, once `begun_`
    bool begun_ = false;
    std::chrono::steady_clock::duration time_{};  // that reading this piece has taken
    unsigned slow_ = 0;                           // slow pieces in a row
    std::uint64_t askUntil_ = 0;                  // the pieces before this one are asked for
    std::uint64_t asked_ = 0;                     // the first one that was not
    std::uint64_t calmUntil_ = 0;                 // before this piece nothing is asked for
    std::bitset<2 * kLookedAhead> ours_;  // which of the pieces nearby were not cached before
};
