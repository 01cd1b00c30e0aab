#include "util/common/poolLock.h"

#include <ostream>
#include <utility>

#include "util/common/errors.h"

PoolLock::PoolLock(PoolKey* key)
    : changeRequired_(std::make_shared<std::atomic<bool>>(false)),
      CVSRequired(*changeRequired_),
      poolKey_(key),
      consumer_(std::make_unique<HEBConsumer>("OSTREL.PoolLock")) {}

PoolLock::~PoolLock() {
    if (IsLocked) {
        Unlock();
    }
    // Kept even where the bus says that it has let go: an event may be on its way to it.
    HEBConsumer::Retire(std::move(consumer_));
}

int PoolLock::Lock(unsigned state, bool exclusive) {
    IsExclusive = exclusive;
    requiredState_ = state;
    // What an earlier time of this lock has left there does not concern the new one. Where the
    // event is watched already, it may be a change that waits.
    if (!consumer_->HEBC_CPSE_IsRegistered()) {
        CVSRequired.store(false, std::memory_order_relaxed);
    }
    // Registered before the state is asked, so that a change that starts in between is caught.
    const int status = consumer_->HEBC_CPSE_Register(*poolKey_, changeRequired_);
    if (status != 0) {
        return status;
    }
    // Where the query throws, the event stays watched until the lock is destroyed.
    if (poolKey_->GetState() != requiredState_) {
        consumer_->HEBC_CPSE_Unregister();
        return zERR_POOL_STATE_INCOMPATIBLE;
    }
    IsLocked = true;
    return 0;
}

int PoolLock::Unlock() {
    // Cleared first: a waiting handler answers before its registration is taken away.
    CVSRequired.store(false, std::memory_order_relaxed);
    const int status = consumer_->HEBC_CPSE_Unregister();
    if (status == 0) {
        IsLocked = false;
    }
    return status;
}

std::ostream& operator<<(std::ostream& stream, const PoolLock& lock) {
    const auto flag = [](bool value) { return value ? '1' : '0'; };
    return stream << "<PoolLock><CVSRequired>"
                  << flag(lock.CVSRequired.load(std::memory_order_relaxed))
                  << "</CVSRequired><IsLocked>" << flag(lock.IsLocked) << "</IsLocked>\n"
                  << "<IsExclusive>" << flag(lock.IsExclusive) << "</IsExclusive><HEBConsumer>"
                  << static_cast<const void*>(lock.consumer_.get())
                  << "</HEBConsumer></PoolLock>\n";
}
