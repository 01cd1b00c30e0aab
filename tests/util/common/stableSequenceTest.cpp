#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "util/common/stableSequence.h"

namespace {

struct Counted {
    Counted(int* counter, int number) : alive(counter), value(number) { ++*alive; }
    ~Counted() { --*alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    int* alive;
    int value;
};

TEST(StableSequence, IsEmptyAtFirst) {
    EXPECT_EQ(StableSequence<std::string>().Size(), 0U);
}

TEST(StableSequence, KeepsElementsInPlaceWhileItGrowsOverManyChunks) {
    constexpr std::size_t kCount = 20'000;
    StableSequence<std::string> sequence;
    std::vector<const std::string*> places;
    for (std::size_t i = 0; i < kCount; ++i) {
        sequence.Append(std::to_string(i));
        places.push_back(&sequence[i]);
        ASSERT_EQ(sequence.Size(), i + 1);
    }
    for (std::size_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(&sequence[i], places[i]);
        ASSERT_EQ(*places[i], std::to_string(i));
    }
}

TEST(StableSequence, BuildsElementsInPlaceAndDestroysEachOnce) {
    int alive = 0;
    {
        StableSequence<Counted> sequence;
        for (int i = 0; i < 1000; ++i) {
            sequence.Append(&alive, i);
        }
        EXPECT_EQ(alive, 1000);
        const StableSequence<Counted>& same = sequence;
        EXPECT_EQ(same[999].value, 999);
    }
    EXPECT_EQ(alive, 0);
}

TEST(StableSequence, ShowsAnotherThreadOnlyWholeElements) {
    constexpr std::size_t kCount = 5'000;
    StableSequence<std::string> sequence;
    std::atomic<bool> wrong{false};
    std::thread reader([&] {
        for (std::size_t seen = 0; seen < kCount;) {
            const std::size_t size = sequence.Size();
            for (; seen < size; ++seen) {
                wrong = wrong || sequence[seen] != "element " + std::to_string(seen);
            }
        }
    });
    for (std::size_t i = 0; i < kCount; ++i) {
        sequence.Append("element " + std::to_string(i));
    }
    reader.join();
    EXPECT_FALSE(wrong);
}

}  // namespace
