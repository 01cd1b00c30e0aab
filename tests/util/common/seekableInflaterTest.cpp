#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "tests/support/fixedRandom.h"
#include "util/common/seekableInflater.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t kSpacing = 200'000;

/// Bytes that deflate to about a half, in many blocks.
Bytes Sample(std::size_t size) {
    support::FixedRandom random(7);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(random.Below(random.Chance(50) ? 4 : 256));
    }
    return bytes;
}

Bytes Deflated(const Bytes& bytes, int level = Z_DEFAULT_COMPRESSION) {
    uLongf size = compressBound(bytes.size());
    Bytes stream(size);
    EXPECT_EQ(compress2(stream.data(), &size, bytes.data(), bytes.size(), level), Z_OK);
    stream.resize(size);
    return stream;
}

/// A stream in memory that counts what is read of it.
class Stream {
  public:
    explicit Stream(Bytes bytes) : bytes_(std::move(bytes)) {}

    StreamSource Source() {
        return [this](std::uint64_t offset, std::span<unsigned char> room) {
            const std::size_t from = std::min<std::size_t>(offset, bytes_.size());
            const std::size_t count = std::min(room.size(), bytes_.size() - from);
            std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(from), count, room.begin());
            given += count;
            return count;
        };
    }

    std::size_t given = 0;

  private:
    Bytes bytes_;
};

Bytes ReadAt(Stream& stream, RestartPoints& points, std::uint64_t offset, std::size_t size) {
    Bytes out(size);
    out.resize(InflateAt(stream.Source(), points, offset, out));
    return out;
}

Bytes Part(const Bytes& bytes, std::size_t offset, std::size_t size) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {from, from + static_cast<std::ptrdiff_t>(size)};
}

TEST(SeekableInflater, ReadsAtAnyPlaceInAnyOrder) {
    const Bytes bytes = Sample(3'000'000);
    for (const int level : {0, 1, 6, 9}) {
        Stream stream(Deflated(bytes, level));
        RestartPoints points(kSpacing);
        support::FixedRandom random(11);
        for (int i = 0; i < 100; ++i) {
            const std::size_t size = random.Below(20'000);
            const std::size_t offset = random.Below(bytes.size() - size);
            EXPECT_EQ(ReadAt(stream, points, offset, size), Part(bytes, offset, size));
        }
        EXPECT_GT(points.Count(), 5U) << level;
    }
}

TEST(SeekableInflater, KnowsWhatItPassedOnce) {
    const Bytes bytes = Sample(3'000'000);
    Stream stream(Deflated(bytes));
    RestartPoints points(kSpacing);
    EXPECT_EQ(ReadAt(stream, points, 2'900'000, 1'000), Part(bytes, 2'900'000, 1'000));
    const std::size_t first = stream.given;
    stream.given = 0;
    EXPECT_EQ(ReadAt(stream, points, 2'900'000, 1'000), Part(bytes, 2'900'000, 1'000));
    EXPECT_LT(stream.given, first / 5);
}

TEST(SeekableInflater, LeavesPointsTheirDistance) {
    const Bytes bytes = Sample(3'000'000);
    Stream stream(Deflated(bytes));
    RestartPoints points(kSpacing);
    ReadAt(stream, points, 2'999'999, 1);
    ReadAt(stream, points, 0, bytes.size());
    std::uint64_t last = 0;
    for (std::uint64_t at = 0; at < bytes.size(); at += 1'000) {
        const std::shared_ptr<const RestartPoint> point = points.Before(at);
        const std::uint64_t place = point ? point->output : 0;
        EXPECT_LE(place, at);
        EXPECT_TRUE(place == last || place >= last + kSpacing);
        last = place;
    }
    EXPECT_GT(last, 2'500'000U);
}

TEST(SeekableInflater, StopsAtTheEnd) {
    const Bytes bytes = Sample(1'000'000);
    Stream stream(Deflated(bytes));
    RestartPoints points(kSpacing);
    EXPECT_EQ(ReadAt(stream, points, 999'990, 100), Part(bytes, 999'990, 10));
    EXPECT_EQ(ReadAt(stream, points, 1'000'000, 100), Bytes());
    EXPECT_EQ(ReadAt(stream, points, 5'000'000, 100), Bytes());
}

TEST(SeekableInflater, GivesWhatStandsBeforeACut) {
    const Bytes bytes = Sample(1'000'000);
    Bytes whole = Deflated(bytes);
    whole.resize(whole.size() / 2);
    Stream stream(whole);
    RestartPoints points(kSpacing);
    const Bytes read = ReadAt(stream, points, 100, bytes.size());
    ASSERT_GT(read.size(), 400'000U);
    EXPECT_EQ(read, Part(bytes, 100, read.size()));
    EXPECT_EQ(ReadAt(stream, points, read.size() + 100, 10), Bytes());
    EXPECT_EQ(ReadAt(stream, points, read.size(), 4'096), Part(bytes, read.size(), 100));
}

TEST(SeekableInflater, GivesNothingOfWhatIsNoStream) {
    Stream stream(Bytes(1'000, 0xFF));
    RestartPoints points(kSpacing);
    EXPECT_EQ(ReadAt(stream, points, 0, 10), Bytes());
    Stream empty{Bytes()};
    EXPECT_EQ(ReadAt(empty, points, 0, 10), Bytes());
    EXPECT_EQ(points.Count(), 0U);
}

TEST(SeekableInflater, ServesManyReadersAtOnce) {
    const Bytes bytes = Sample(2'000'000);
    const Bytes stream = Deflated(bytes);
    RestartPoints points(kSpacing);
    std::vector<std::thread> readers;
    std::vector<int> wrong(4);
    for (std::size_t reader = 0; reader < wrong.size(); ++reader) {
        readers.emplace_back([&, reader] {
            Stream own(stream);
            support::FixedRandom random(reader);
            for (int i = 0; i < 50; ++i) {
                const std::size_t offset = random.Below(bytes.size() - 4'096);
                wrong[reader] +=
                    ReadAt(own, points, offset, 4'096) == Part(bytes, offset, 4'096) ? 0 : 1;
            }
        });
    }
    std::ranges::for_each(readers, &std::thread::join);
    EXPECT_EQ(wrong, std::vector<int>(4));
}

TEST(RestartPoints, ForgetsAll) {
    RestartPoints points(kSpacing);
    points.Add({.input = 1, .output = kSpacing, .window = {}});
    EXPECT_EQ(points.Count(), 1U);
    points.Clear();
    EXPECT_EQ(points.Before(kSpacing), nullptr);
}

TEST(RestartPoints, OfALongStreamAreFewerAndStillSpread) {
    RestartPoints points(10);
    for (std::uint64_t place = 10; place <= 100'000; place += 10) {
        if (points.Wants(place)) {
            points.Add({.input = place, .output = place, .window = {}});
        }
    }
    EXPECT_LT(points.Count(), RestartPoints::kMostPoints);
    EXPECT_GE(points.Count(), RestartPoints::kMostPoints / 2 - 1);
    for (std::uint64_t place = 1'000; place <= 100'000; place += 100) {
        const std::shared_ptr<const RestartPoint> point = points.Before(place);
        ASSERT_NE(point, nullptr);
        EXPECT_LE(place - point->output, 640U);
    }
}

}  // namespace
