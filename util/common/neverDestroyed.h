#pragma once

#include <cstddef>
#include <memory>
#include <new>

/// Holds a value that is deliberately left to the end of the process. The bus's threads are not the
/// tool's to end: one may be in the tool's code when `main` has returned and static objects are
/// destroyed. What such a thread can reach is a static object of this type.
template <typename Value>
class NeverDestroyed {
  public:
    NeverDestroyed() { std::construct_at(reinterpret_cast<Value*>(storage_)); }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    /// The value, whenever it is asked for.
    Value& operator*() { return *std::launder(reinterpret_cast<Value*>(storage_)); }
    Value* operator->() { return &**this; }

  private:
    alignas(Value) std::byte storage_[sizeof(Value)];
};
