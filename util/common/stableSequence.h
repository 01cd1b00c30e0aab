#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

/// A growing sequence whose elements never move: one thread appends while others read what has been
/// published. Elements are built in place and live as long as the sequence.
template <typename T>
class StableSequence {
  public:
    StableSequence() = default;
    StableSequence(const StableSequence&) = delete;
    StableSequence& operator=(const StableSequence&) = delete;

    ~StableSequence() {
        for (std::size_t index = Size(); index-- > 0;) {
            std::destroy_at(&(*this)[index]);
        }
    }

    /// How many elements are there for any thread to read.
    std::size_t Size() const { return count_.load(std::memory_order_acquire); }

    /// The published element of this index.
    T& operator[](std::size_t index) { return *std::launder(reinterpret_cast<T*>(Slot(index))); }
    const T& operator[](std::size_t index) const {
        return *std::launder(reinterpret_cast<const T*>(Slot(index)));
    }

    /// Builds an element at the end and publishes it. One thread appends.
    template <typename... Arguments>
    void Append(Arguments&&... arguments) {
        const std::size_t index = count_.load(std::memory_order_relaxed);
        const Place place = PlaceOf(index);
        if (chunks_[place.chunk] == nullptr) {
            chunks_[place.chunk] =
                std::make_unique_for_overwrite<Storage[]>(kFirstChunk << place.chunk);
        }
        std::construct_at(reinterpret_cast<T*>(Slot(index)), std::forward<Arguments>(arguments)...);
        count_.store(index + 1, std::memory_order_release);
    }

  private:
    struct alignas(T) Storage {
        std::byte bytes[sizeof(T)];
    };
    struct Place {
        std::size_t chunk;
        std::size_t offset;
    };

    static constexpr std::size_t kFirstChunk = 16;
    static constexpr std::size_t kChunks = 48;

    /// Chunk k holds 16 << k elements, from index 16 * (2^k - 1) on.
    static Place PlaceOf(std::size_t index) {
        const std::size_t scaled = index / kFirstChunk + 1;
        const auto chunk = static_cast<std::size_t>(std::bit_width(scaled)) - 1;
        return {chunk, index - kFirstChunk * (std::bit_floor(scaled) - 1)};
    }

    /// Where the element of this index lives, or will.
    std::byte* Slot(std::size_t index) {
        const Place place = PlaceOf(index);
        return chunks_[place.chunk][place.offset].bytes;
    }
    const std::byte* Slot(std::size_t index) const {
        const Place place = PlaceOf(index);
        return chunks_[place.chunk][place.offset].bytes;
    }

    std::array<std::unique_ptr<Storage[]>, kChunks> chunks_;
    std::atomic<std::size_t> count_{0};
};
