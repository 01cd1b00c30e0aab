#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace sim {

/// Holds a value that is deliberately left to the end of the process: the bus library's threads are
/// ended by nobody, and use it when the process's static objects are destroyed already.
template <typename Value>
class NeverDestroyed {
  public:
    NeverDestroyed() { std::construct_at(reinterpret_cast<Value*>(storage_)); }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    /// The value, whenever it is asked for.
    Value& operator*() { return *std::launder(reinterpret_cast<Value*>(storage_)); }

  private:
    alignas(Value) std::byte storage_[sizeof(Value)];
};

}  // namespace sim
