#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

/// A place in a zlib stream where inflating can begin: between two of its blocks, with what stands
/// before it as far as the next block may refer to it.
struct RestartPoint {
    std::uint64_t input = 0;   ///< bytes of the stream before it
    unsigned bits = 0;         ///< so many bits of the last of these are behind it
    std::uint64_t output = 0;  ///< inflated bytes before it
    std::vector<unsigned char> window;
};

/// The restart points known of one stream, `spacing` bytes of its output apart or more. A stream
/// with very many has its spacing doubled, so that its memory stays flat. Used by any number of
/// threads at once.
class RestartPoints {
  public:
    explicit RestartPoints(std::uint64_t spacing) : spacing_(spacing) {}

    /// The last one at or before a place in the output; null where that is the stream's start.
    std::shared_ptr<const RestartPoint> Before(std::uint64_t output) const;
    /// Whether a point there would be a new one, far enough behind the last.
    bool Wants(std::uint64_t output) const;
    /// Takes a point that is still wanted.
    void Add(RestartPoint point);
    /// Forgets all.
    void Clear();

    std::size_t Count() const;
    /// Bytes of memory that one point takes, about.
    static constexpr std::size_t kPointBytes = 32'768;
    static constexpr std::size_t kMostPoints = 512;

  private:
    bool WantsLocked(std::uint64_t output) const;

    mutable std::mutex mutex_;
    std::uint64_t spacing_;
    std::vector<std::shared_ptr<const RestartPoint>> points_;  // by their places
};

/// Gives bytes of a stream from an offset on: as many as fit or are left, none at its end or where
/// it cannot be read.
using StreamSource = std::function<std::size_t(std::uint64_t offset, std::span<unsigned char>)>;

/// Inflates what stands at `offset` of a zlib stream's output, from the nearest restart point on.
/// The points that are passed on the way and not known yet are added, so that the first reads of a
/// stream are its index. Returns how many bytes came: fewer only where the stream ends or is
/// broken. The stream's own checksum is not compared.
std::size_t InflateAt(const StreamSource& source, RestartPoints& points, std::uint64_t offset,
                      std::span<unsigned char> out);
