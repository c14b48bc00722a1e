#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <limits>
#include <unordered_set>

#include "daemon/HelperVersionReconciliation.h"

namespace airflow::daemon {
namespace {

using HelperVersionReconciliation::decide;
using enum HelperVersionDecision;

constexpr auto matched = HelperVersionProbe::matched;
constexpr auto mismatched = HelperVersionProbe::mismatched;
constexpr auto noReply = HelperVersionProbe::noReply;
constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
constexpr auto highest = std::numeric_limits<std::int64_t>::max();

TEST(HelperVersionReconciliation, threeUpgradesAreAllowedByDefault) {
    EXPECT_EQ(HelperVersionReconciliation::defaultMaxUpgradeAttempts, 3);
}

TEST(HelperVersionReconciliation, aMatchingHelperIsUsedWhateverTheCount) {
    EXPECT_EQ(decide(matched, 0, 3), proceed);
    EXPECT_EQ(decide(matched, 3, 3), proceed);
    EXPECT_EQ(decide(matched, 4, 3), proceed);
    EXPECT_EQ(decide(matched, 0, 0), proceed);
    EXPECT_EQ(decide(matched, highest, lowest), proceed);
}

TEST(HelperVersionReconciliation, aMismatchIsSwappedBelowTheLimitOnly) {
    EXPECT_EQ(decide(mismatched, 0, 3), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, 2, 3), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, 3, 3), stale);
    EXPECT_EQ(decide(mismatched, 4, 3), stale);
}

TEST(HelperVersionReconciliation, aNegativeCountIsBelowTheLimit) {
    EXPECT_EQ(decide(mismatched, -1, 3), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, -1, 1), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, lowest, highest), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, -1, 0), triggerUpgradeSwap);
}

TEST(HelperVersionReconciliation, aLimitOfZeroOrLessAllowsNoSwap) {
    EXPECT_EQ(decide(mismatched, 0, 1), triggerUpgradeSwap);
    EXPECT_EQ(decide(mismatched, 0, 0), stale);
    EXPECT_EQ(decide(mismatched, 0, -1), stale);
    EXPECT_EQ(decide(mismatched, 5, lowest), stale);
    EXPECT_EQ(decide(mismatched, -1, -1), stale);
}

TEST(HelperVersionReconciliation, aHelperThatDoesNotReplyIsStaleWhateverTheCount) {
    EXPECT_EQ(decide(noReply, 0, 3), stale);
    EXPECT_EQ(decide(noReply, 3, 3), stale);
    EXPECT_EQ(decide(noReply, -1, 3), stale);
    EXPECT_EQ(decide(noReply, lowest, highest), stale);
}

RC_GTEST_PROP(HelperVersionReconciliation, theReconcilerDecidesByTheSameRule,
              (std::int64_t attempts, std::int64_t limit)) {
    const auto probe = *rc::gen::element(matched, mismatched, noReply);
    HelperVersionReconciler reconciler{.maxUpgradeAttempts = limit};
    RC_ASSERT(reconciler.next(probe, attempts) == decide(probe, attempts, limit));
}

TEST(HelperVersionReconciliation, probesDecisionsAndStatesCanBeHashed) {
    EXPECT_EQ((std::unordered_set{matched, mismatched, noReply, matched}.size()), 3u);
    EXPECT_EQ((std::unordered_set{proceed, triggerUpgradeSwap, stale, stale}.size()), 3u);
    EXPECT_EQ((std::unordered_set{
                  HelperVersionClassification::unknown, HelperVersionClassification::matched,
                  HelperVersionClassification::stale, HelperVersionClassification::unknown}
                   .size()),
              3u);
}

}  // namespace
}  // namespace airflow::daemon
