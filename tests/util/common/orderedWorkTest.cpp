#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "util/common/orderedWork.h"

namespace {

std::vector<std::size_t> Squares(std::size_t count, unsigned jobs) {
    std::vector<std::size_t> taken;
    OrderedWork<std::size_t>::Run(
        count, jobs, [](std::size_t i) { return i * i; },
        [&taken](std::size_t i, std::size_t square) {
            EXPECT_EQ(i, taken.size());
            taken.push_back(square);
        });
    return taken;
}

TEST(OrderedWork, GivesTheSameResultsInOrderForAnyNumberOfJobs) {
    const std::vector<std::size_t> wanted = Squares(1000, 1);
    EXPECT_EQ(wanted.size(), 1000U);
    EXPECT_EQ(wanted[999], 999U * 999U);
    for (const unsigned jobs : {2U, 3U, 16U}) {
        EXPECT_EQ(Squares(1000, jobs), wanted);
    }
}

TEST(OrderedWork, DoesNothingForNoPieces) {
    EXPECT_TRUE(Squares(0, 4).empty());
    EXPECT_EQ(Squares(1, 4).size(), 1U);
}

TEST(OrderedWork, WorksOnSeveralThreads) {
    std::atomic<int> waiting = 0;
    // Each piece waits for the other one, which one thread could not do.
    const auto meet = [&waiting](std::size_t) {
        waiting += 1;
        while (waiting < 2) {
            std::this_thread::yield();
        }
        return std::this_thread::get_id();
    };
    std::set<std::thread::id> threads;
    OrderedWork<std::thread::id>::Run(
        2, 2, meet, [&threads](std::size_t, std::thread::id id) { threads.insert(id); });
    EXPECT_EQ(threads.size(), 2U);
    EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

TEST(OrderedWork, RunsAheadOfTheTakerByTwoPiecesForEachJobAtMost) {
    std::atomic<std::size_t> begun = 0;
    OrderedWork<int>::Run(
        200, 3,
        [&begun](std::size_t) {
            begun += 1;
            return 0;
        },
        [&begun](std::size_t i, int) { EXPECT_LE(begun, i + 1 + 6); });
    EXPECT_EQ(begun, 200U);
}

struct PieceFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

TEST(OrderedWork, ThrowsTheFirstFailureInOrderBehindTheResultsBeforeIt) {
    for (const unsigned jobs : {1U, 4U}) {
        std::size_t taken = 0;
        try {
            OrderedWork<int>::Run(
                100, jobs,
                [](std::size_t i) {
                    if (i == 20 || i == 21) {
                        throw PieceFailed(std::to_string(i));
                    }
                    return 0;
                },
                [&taken](std::size_t, int) { taken += 1; });
            FAIL() << "nothing was thrown";
        } catch (const PieceFailed& failure) {
            EXPECT_STREQ(failure.what(), "20");
        }
        EXPECT_EQ(taken, 20U);
    }
}

TEST(OrderedWork, EndsWhenTheTakerThrows) {
    for (const unsigned jobs : {1U, 4U}) {
        const auto run = [jobs] {
            OrderedWork<int>::Run(
                100, jobs, [](std::size_t) { return 0; },
                [](std::size_t, int) { throw PieceFailed("taker"); });
        };
        EXPECT_THROW(run(), PieceFailed);
    }
}

TEST(OrderedWork, HandsOverResultsThatCannotBeCopied) {
    int sum = 0;
    OrderedWork<std::unique_ptr<int>>::Run(
        10, 2, [](std::size_t i) { return std::make_unique<int>(static_cast<int>(i)); },
        [&sum](std::size_t, const std::unique_ptr<int>& number) { sum += *number; });
    EXPECT_EQ(sum, 45);
}

}  // namespace
