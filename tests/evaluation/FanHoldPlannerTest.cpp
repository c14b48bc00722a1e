#include <limits>

#include "evaluation/Builders.h"
#include "evaluation/FanHoldPlanner.h"

namespace airflow::evaluation {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using FanHoldPlanner::actions;

TEST(FanHoldPlanner, doesNothingWithoutDecisionsAndClaims) {
    const FanHoldActions nothing = actions({}, {});
    EXPECT_THAT(nothing.toClaim, IsEmpty());
    EXPECT_THAT(nothing.toRelease, IsEmpty());
    EXPECT_THAT(nothing.targets, IsEmpty());
    EXPECT_FALSE(nothing.forceTestEnabled);
    EXPECT_THAT(nothing.stoppedFans, IsEmpty());
    EXPECT_FALSE(nothing.isGlobalIdle);
    EXPECT_EQ(nothing, FanHoldActions{});
}

TEST(FanHoldPlanner, releasesClaimedFansThatHaveNoDecision) {
    const FanHoldActions result = actions({}, {1, 0});
    EXPECT_THAT(result.toClaim, IsEmpty());
    EXPECT_THAT(result.toRelease, ElementsAre(0, 1));
    EXPECT_THAT(result.targets, IsEmpty());
    EXPECT_FALSE(result.forceTestEnabled);
    EXPECT_FALSE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, claimsFansThatHaveATarget) {
    const FanHoldActions result = actions({{1, rpm(2000)}, {0, rpm(1500)}}, {});
    EXPECT_THAT(result.toClaim, ElementsAre(0, 1));
    EXPECT_THAT(result.toRelease, IsEmpty());
    EXPECT_THAT(result.targets, ElementsAre(Pair(0, 1500), Pair(1, 2000)));
    EXPECT_TRUE(result.forceTestEnabled);
    EXPECT_THAT(result.stoppedFans, IsEmpty());
    EXPECT_FALSE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, isIdleWhenEveryWantedFanIsStopped) {
    const FanHoldActions result = actions({{0, stopped}, {1, released}}, {0, 1});
    EXPECT_THAT(result.toClaim, IsEmpty());
    EXPECT_THAT(result.toRelease, ElementsAre(1));
    EXPECT_THAT(result.targets, ElementsAre(Pair(0, 0.0)));
    EXPECT_THAT(result.stoppedFans, ElementsAre(0));
    EXPECT_TRUE(result.forceTestEnabled);
    EXPECT_TRUE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, isNotIdleWhileAnyFanHasATarget) {
    const FanHoldActions result = actions({{0, stopped}, {1, rpm(1800)}}, {0, 1});
    EXPECT_THAT(result.targets, ElementsAre(Pair(0, 0.0), Pair(1, 1800)));
    EXPECT_THAT(result.stoppedFans, ElementsAre(0));
    EXPECT_TRUE(result.forceTestEnabled);
    EXPECT_FALSE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, aTargetOfZeroIsATargetAndNoStop) {
    const FanHoldActions result = actions({{0, rpm(0)}}, {});
    EXPECT_THAT(result.targets, ElementsAre(Pair(0, 0.0)));
    EXPECT_THAT(result.stoppedFans, IsEmpty());
    EXPECT_FALSE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, neitherClaimsNorReleasesAClaimedFanThatHasATarget) {
    const FanHoldActions result = actions({{0, rpm(1800)}}, {0});
    EXPECT_THAT(result.toClaim, IsEmpty());
    EXPECT_THAT(result.toRelease, IsEmpty());
    EXPECT_THAT(result.targets, ElementsAre(Pair(0, 1800)));
    EXPECT_TRUE(result.forceTestEnabled);
}

TEST(FanHoldPlanner, neitherClaimsNorReleasesAClaimedFanThatIsStopped) {
    const FanHoldActions result = actions({{0, stopped}}, {0});
    EXPECT_THAT(result.toClaim, IsEmpty());
    EXPECT_THAT(result.toRelease, IsEmpty());
    EXPECT_TRUE(result.forceTestEnabled);
}

TEST(FanHoldPlanner, claimsAStoppedFanThatIsNotClaimed) {
    const FanHoldActions result = actions({{0, stopped}}, {});
    EXPECT_THAT(result.toClaim, ElementsAre(0));
    EXPECT_TRUE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, leavesAReleasedFanThatIsNotClaimedAlone) {
    EXPECT_EQ(actions({{0, released}}, {}), FanHoldActions{});
}

TEST(FanHoldPlanner, releasesAClaimedFanThatIsDecidedReleased) {
    const FanHoldActions result = actions({{0, released}}, {0});
    EXPECT_THAT(result.toRelease, ElementsAre(0));
    EXPECT_FALSE(result.forceTestEnabled);
    EXPECT_FALSE(result.isGlobalIdle);
}

TEST(FanHoldPlanner, listsFansInAscendingOrder) {
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    const FanHoldActions result = actions(
        {{10, stopped}, {9, rpm(1)}, {-2, stopped}, {highest, stopped}, {3, rpm(2)}}, {8, 70, -5});
    EXPECT_THAT(result.toClaim, ElementsAre(-2, 3, 9, 10, highest));
    EXPECT_THAT(result.toRelease, ElementsAre(-5, 8, 70));
    EXPECT_THAT(result.stoppedFans, ElementsAre(-2, 10, highest));
}

TEST(FanHoldPlanner, actionsDifferByEachOfTheirFields) {
    const FanHoldActions original = actions({{0, stopped}, {1, rpm(1800)}}, {2});
    const auto differsAfter = [&](auto change) {
        FanHoldActions changed = original;
        change(changed);
        return changed != original;
    };
    EXPECT_FALSE(differsAfter([](FanHoldActions&) {}));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.toClaim.clear(); }));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.toRelease.clear(); }));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.targets[1] = 1801; }));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.forceTestEnabled = false; }));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.stoppedFans.clear(); }));
    EXPECT_TRUE(differsAfter([](FanHoldActions& other) { other.isGlobalIdle = true; }));
}

}  // namespace
}  // namespace airflow::evaluation
