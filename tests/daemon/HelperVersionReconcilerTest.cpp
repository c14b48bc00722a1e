#include <gmock/gmock.h>

#include "daemon/HelperVersionReconciliation.h"

namespace airflow::daemon {
namespace {

using enum HelperVersionProbe;
using Belief = HelperVersionClassification;
using Decision = HelperVersionDecision;

TEST(HelperVersionReconciler, aNewOneKnowsNothingAndNeedsAProbe) {
    const HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler.classification, Belief::unknown);
    EXPECT_EQ(reconciler.maxUpgradeAttempts, 3);
    EXPECT_TRUE(reconciler.needsProbe());
}

TEST(HelperVersionReconciler, needsNoProbeAfterAMatchUntilTheConnectionChanges) {
    HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler.next(matched, 0), Decision::proceed);
    EXPECT_EQ(reconciler.classification, Belief::matched);
    EXPECT_FALSE(reconciler.needsProbe());

    reconciler.connectionChanged();
    EXPECT_EQ(reconciler.classification, Belief::unknown);
    EXPECT_TRUE(reconciler.needsProbe());
}

TEST(HelperVersionReconciler, byDefaultTheFourthMismatchIsStale) {
    HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler.next(mismatched, 0), Decision::triggerUpgradeSwap);
    EXPECT_EQ(reconciler.next(mismatched, 1), Decision::triggerUpgradeSwap);
    EXPECT_EQ(reconciler.next(mismatched, 2), Decision::triggerUpgradeSwap);
    EXPECT_TRUE(reconciler.needsProbe());
    EXPECT_EQ(reconciler.next(mismatched, 3), Decision::stale);
    EXPECT_EQ(reconciler.classification, Belief::stale);
    EXPECT_FALSE(reconciler.needsProbe());
}

TEST(HelperVersionReconciler, aCountBeyondTheLimitIsStaleToo) {
    HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler.next(mismatched, 4), Decision::stale);
    EXPECT_EQ(reconciler.classification, Belief::stale);
}

TEST(HelperVersionReconciler, anUpgradeLeavesEveryOtherFieldAsItWas) {
    for (const Belief belief : {Belief::unknown, Belief::matched, Belief::stale}) {
        HelperVersionReconciler reconciler{.classification = belief};
        EXPECT_EQ(reconciler.next(mismatched, 0), Decision::triggerUpgradeSwap);
        EXPECT_EQ(reconciler.classification, belief);
    }
}

TEST(HelperVersionReconciler, noReplyIsStaleAtOnceWhateverTheCount) {
    for (const int attempts : {-1, 0, 2, 3, 4}) {
        HelperVersionReconciler reconciler;
        EXPECT_EQ(reconciler.next(noReply, attempts), Decision::stale);
        EXPECT_EQ(reconciler.classification, Belief::stale);
    }
}

TEST(HelperVersionReconciler, aMatchIsUsedWhateverTheCount) {
    for (const int attempts : {-1, 0, 2, 3, 4}) {
        HelperVersionReconciler reconciler;
        EXPECT_EQ(reconciler.next(matched, attempts), Decision::proceed);
        EXPECT_EQ(reconciler.classification, Belief::matched);
    }
}

TEST(HelperVersionReconciler, itsOwnLimitCounts) {
    HelperVersionReconciler once{.maxUpgradeAttempts = 1};
    EXPECT_EQ(once.next(mismatched, -1), Decision::triggerUpgradeSwap);
    EXPECT_EQ(once.next(mismatched, 0), Decision::triggerUpgradeSwap);
    EXPECT_EQ(once.next(mismatched, 1), Decision::stale);

    HelperVersionReconciler never{.maxUpgradeAttempts = 0};
    EXPECT_EQ(never.next(mismatched, 0), Decision::stale);
    HelperVersionReconciler negative{.maxUpgradeAttempts = -1};
    EXPECT_EQ(negative.next(mismatched, 0), Decision::stale);
}

TEST(HelperVersionReconciler, aStaleHelperIsProbedAgainOnTheNextConnection) {
    HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler.next(noReply, 0), Decision::stale);
    reconciler.connectionChanged();
    EXPECT_TRUE(reconciler.needsProbe());
    EXPECT_EQ(reconciler.next(matched, 0), Decision::proceed);
    EXPECT_FALSE(reconciler.needsProbe());
}

TEST(HelperVersionReconciler, aChangeOfConnectionKeepsTheLimit) {
    HelperVersionReconciler reconciler{.maxUpgradeAttempts = 7};
    reconciler.connectionChanged();
    EXPECT_EQ(reconciler.maxUpgradeAttempts, 7);
}

TEST(HelperVersionReconciler, everyFieldTakesPartInEquality) {
    const HelperVersionReconciler reconciler;
    EXPECT_EQ(reconciler, (HelperVersionReconciler{.maxUpgradeAttempts = 3}));
    EXPECT_NE(reconciler, (HelperVersionReconciler{.maxUpgradeAttempts = 4}));
    EXPECT_NE(reconciler, (HelperVersionReconciler{.classification = Belief::stale}));
}

}  // namespace
}  // namespace airflow::daemon
