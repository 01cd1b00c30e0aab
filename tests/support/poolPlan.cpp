#include "tests/support/poolPlan.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "tests/support/fixedRandom.h"

namespace support {
namespace {

constexpr std::uint64_t kLongestRun = 24;

/// The numbers of the blocks that are to be internal, ascending, block 1 and the last among them.
std::vector<std::uint64_t> PlaceInternal(const PoolWish& wish, FixedRandom& random) {
    const auto wanted =
        static_cast<std::uint64_t>(std::llround(wish.internal * static_cast<double>(wish.blocks)));
    const std::uint64_t last = wish.blocks - 1;
    std::uint64_t internal = std::clamp<std::uint64_t>(wanted, kUserType, last) - 2;
    std::vector<std::uint64_t> placed{1};
    for (std::uint64_t at = 2; at < last;) {
        const std::uint64_t left = last - at;
        const bool inside = random.Below(left) < internal;
        const std::uint64_t run =
            std::min(1 + random.Below(kLongestRun), inside ? internal : left - internal);
        for (std::uint64_t i = 0; inside && i < run; ++i) {
            placed.push_back(at + i);
        }
        internal -= inside ? run : 0;
        at += run;
    }
    placed.push_back(last);
    return placed;
}

/// Draws internal types by their weights; leaves of the other format are rare.
class TypeUrn {
  public:
    explicit TypeUrn(std::size_t superblock) {
        const std::size_t foreign = superblock == kSuperblockZ32 ? kLeafZ64 : kLeafZ32;
        for (std::size_t type = 0; type < kUserType; ++type) {
            const unsigned weight = type == foreign ? 1 : kPoolTypes[type].weight;
            slips_.insert(slips_.end(), weight, static_cast<std::uint8_t>(type));
        }
    }

    [[nodiscard]] std::uint8_t Draw(FixedRandom& random) const {
        return slips_[random.Below(slips_.size())];
    }

  private:
    std::vector<std::uint8_t> slips_;
};

/// Moves random places to the front of `places`, one for each internal type.
void ShuffleFront(std::vector<std::uint64_t>& places, FixedRandom& random) {
    for (std::size_t i = 0; i < kUserType - 1; ++i) {
        std::swap(places[i], places[i + random.Below(places.size() - i)]);
    }
}

}  // namespace

std::vector<std::uint8_t> PlanPool(const PoolWish& wish) {
    FixedRandom random(wish.seed);
    std::vector<std::uint8_t> plan(wish.blocks, static_cast<std::uint8_t>(kUserType));
    std::vector<std::uint64_t> places = PlaceInternal(wish, random);
    const TypeUrn urn(wish.superblock);
    for (const std::uint64_t place : places) {
        plan[place] = urn.Draw(random);
    }
    plan[1] = static_cast<std::uint8_t>(wish.superblock);
    places.erase(places.begin());
    ShuffleFront(places, random);
    for (std::size_t type = 0, at = 0; type < kUserType; ++type) {
        if (type != wish.superblock) {
            plan[places[at++]] = static_cast<std::uint8_t>(type);
        }
    }
    return plan;
}

}  // namespace support
