#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "util/common/heb.h"
#include "util/common/pvKey.h"

/// Holds a pool in the state that it must already have: while locked, changes that may be refused
/// are refused, and a forced one waits on the bus's thread until `Unlock`. One thread makes, locks,
/// unlocks and destroys it; the destructor unlocks.
class PoolLock {
    // What `CVSRequired` refers to, and so made before it.
    HEBChangeFlag changeRequired_;

  public:
    /// The caller keeps the key alive as long as the lock.
    explicit PoolLock(PoolKey* key);
    ~PoolLock();
    PoolLock(const PoolLock&) = delete;
    PoolLock& operator=(const PoolLock&) = delete;

    /// 0 when the pool is in the state of that number (see `PVKey::GetState`) and held;
    /// `zERR_POOL_STATE_INCOMPATIBLE` when it is in another one, `zERR_INVALID_STATE` when it is
    /// held already, or the registration's status. Throws what the state query throws, and the
    /// event is then still watched, though not as a lock.
    int Lock(unsigned state, bool exclusive);

    /// Lets a waiting change go on; 0, or `zERR_INVALID_STATE` when nothing was held.
    int Unlock();

    /// Set by the bus's thread when a forced change of the pool's state waits for `Unlock`, which
    /// clears it, as `Lock` does before it watches the pool. Poll it with a relaxed load.
    std::atomic<bool>& CVSRequired;
    bool IsLocked = false;     ///< between a `Lock` that returned 0 and `Unlock`
    bool IsExclusive = false;  ///< as the last `Lock` asked; recorded and no more

    friend std::ostream& operator<<(std::ostream& stream, const PoolLock& lock);

  private:
    std::uint32_t requiredState_ = 0;
    PoolKey* poolKey_;
    std::unique_ptr<HEBConsumer> consumer_;
};

/// Writes the lock as two lines of elements; flags print as 0 or 1, the consumer as its address.
std::ostream& operator<<(std::ostream& stream, const PoolLock& lock);
