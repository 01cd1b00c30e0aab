#include "util/common/seekableInflater.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t kInputSize = 65'536;
constexpr std::size_t kSkipSize = 65'536;

/// One stretch of inflating, from a restart point or the stream's start.
class Stretch {
  public:
    Stretch(const StreamSource& source, RestartPoints& points, const RestartPoint* start)
        : source_(source), points_(points), input_(kInputSize) {
        ready_ = start == nullptr ? inflateInit(&stream_) == Z_OK : Begin(*start);
    }
    ~Stretch() { inflateEnd(&stream_); }
    Stretch(const Stretch&) = delete;
    Stretch& operator=(const Stretch&) = delete;

    std::uint64_t Place() const { return base_ + stream_.total_out; }

    /// Inflates so many bytes; returns how many came.
    std::size_t Fill(std::span<unsigned char> out) {
        const std::size_t piece =
            std::min<std::size_t>(out.size(), std::numeric_limits<uInt>::max());
        stream_.next_out = out.data();
        stream_.avail_out = static_cast<uInt>(piece);
        while (ready_ && stream_.avail_out != 0) {
            Refill();
            const int result = inflate(&stream_, Z_BLOCK);
            ready_ = result == Z_OK;
            NotePoint();
        }
        return piece - stream_.avail_out;
    }

  private:
    /// A stream without its head: raw deflate, primed with what the blocks before have left.
    bool Begin(const RestartPoint& point) {
        base_ = point.output;
        taken_ = point.input;
        bool good = inflateInit2(&stream_, -MAX_WBITS) == Z_OK;
        if (good && point.bits != 0) {
            std::array<unsigned char, 1> last{};
            good = source_(point.input - 1, last) == 1 &&
                   inflatePrime(&stream_, static_cast<int>(point.bits),
                                last[0] >> (8 - point.bits)) == Z_OK;
        }
        return good && inflateSetDictionary(&stream_, point.window.data(),
                                            static_cast<uInt>(point.window.size())) == Z_OK;
    }

    void Refill() {
        if (stream_.avail_in == 0) {
            const std::size_t count = source_(taken_, input_);
            taken_ += count;
            stream_.next_in = input_.data();
            stream_.avail_in = static_cast<uInt>(count);
        }
    }

    /// After a run that ended between two blocks.
    void NotePoint() {
        constexpr int kBetweenBlocks = 0x80;
        constexpr int kInLastBlock = 0x40;
        const bool between =
            (stream_.data_type & (kBetweenBlocks | kInLastBlock)) == kBetweenBlocks;
        if (!ready_ || !between || !points_.Wants(Place())) {
            return;
        }
        RestartPoint point{.input = taken_ - stream_.avail_in,
                           .bits = static_cast<unsigned>(stream_.data_type) & 7U,
                           .output = Place(),
                           .window = std::vector<unsigned char>(RestartPoints::kPointBytes)};
        uInt length = 0;
        if (inflateGetDictionary(&stream_, point.window.data(), &length) == Z_OK) {
            point.window.resize(length);
            points_.Add(std::move(point));
        }
    }

    const StreamSource& source_;
    RestartPoints& points_;
    z_stream stream_{};
    bool ready_ = false;
    std::uint64_t base_ = 0;   // of the output
    std::uint64_t taken_ = 0;  // of the input
    std::vector<unsigned char> input_;
};

}  // namespace

std::shared_ptr<const RestartPoint> RestartPoints::Before(std::uint64_t output) const {
    const std::lock_guard lock(mutex_);
    const auto behind = std::ranges::upper_bound(points_, output, {}, &RestartPoint::output);
    return behind == points_.begin() ? nullptr : *std::prev(behind);
}

bool RestartPoints::WantsLocked(std::uint64_t output) const {
    const std::uint64_t last = points_.empty() ? 0 : points_.back()->output;
    return output >= last && output - last >= spacing_;
}

bool RestartPoints::Wants(std::uint64_t output) const {
    const std::lock_guard lock(mutex_);
    return WantsLocked(output);
}

void RestartPoints::Add(RestartPoint point) {
    const std::lock_guard lock(mutex_);
    if (!WantsLocked(point.output)) {
        return;  // another reader came first
    }
    points_.push_back(std::make_shared<const RestartPoint>(std::move(point)));
    if (points_.size() < kMostPoints) {
        return;
    }
    spacing_ *= 2;
    std::size_t place = 0;
    std::erase_if(points_, [&place](const auto&) { return place++ % 2 == 0; });
}

void RestartPoints::Clear() {
    const std::lock_guard lock(mutex_);
    points_.clear();
}

std::size_t RestartPoints::Count() const {
    const std::lock_guard lock(mutex_);
    return points_.size();
}

std::size_t InflateAt(const StreamSource& source, RestartPoints& points, std::uint64_t offset,
                      std::span<unsigned char> out) {
    const std::shared_ptr<const RestartPoint> start = points.Before(offset);
    Stretch stretch(source, points, start.get());
    std::vector<unsigned char> skipped(kSkipSize);
    while (stretch.Place() < offset) {
        const std::uint64_t left = offset - stretch.Place();
        const std::span room = std::span(skipped).first(std::min<std::uint64_t>(left, kSkipSize));
        if (stretch.Fill(room) != room.size()) {
            return 0;
        }
    }
    std::size_t filled = 0;
    while (filled < out.size()) {
        const std::size_t count = stretch.Fill(out.subspan(filled));
        filled += count;
        if (count == 0) {
            break;
        }
    }
    return filled;
}
