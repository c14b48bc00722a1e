// Putting a plan in force: the order of what happens, and what becomes of fans that refuse.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

class ApplyPlan : public testing::Test {
protected:
    ControlResult apply(const std::vector<std::pair<std::int64_t, Mode>>& fans) {
        return harness.run(harness.controller().applyPlan(planOf(fans)));
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

TEST_F(ApplyPlan, claimsTakesASnapshotAndThenHolds) {
    const auto requests = watchRequests(harness);
    EXPECT_EQ(apply({{0, rpm(3000)}}), ControlResult::applied());
    EXPECT_THAT(*requests,
                ElementsAre("Ftst=1",                                // nothing to give back
                            "F0Md", "F0Md=1",                        // claimed
                            "FNum", "F0Ac", "F0Mn", "F0Mx", "F0Md",  // the snapshot
                            "F1Ac", "F1Mn", "F1Mx", "F1Md",          //
                            "Ftst=1", "F0Md=1", "F0Tg=3000", "F0Md"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
    const std::map<std::int64_t, std::int64_t> targets{{0, 3000}};
    EXPECT_EQ(harness.published.back().targets, targets);
}

TEST_F(ApplyPlan, isRefusedToAProcessThatIsNotRootAndChangesNothing) {
    (void)apply({{0, rpm(3000)}});
    forget(harness);
    harness.system.effectiveUserID = 501;
    EXPECT_EQ(apply({{1, rpm(4000)}}), ControlResult::notPrivileged());
    EXPECT_EQ(harness.run(harness.controller().setManual(1_fan, 4000_rpm)),
              ControlResult::notPrivileged());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
    EXPECT_EQ(harness.run(harness.controller().fullBlast()), ControlResult::notPrivileged());
    EXPECT_THAT(harness.reads, ElementsAre("FNum"));

    harness.advance(2s);  // the plan in force is still the first
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000"));
}

TEST_F(ApplyPlan, claimsInTheOrderOfThePlanAndHoldsInTheOrderOfTheFans) {
    EXPECT_EQ(apply({{1, rpm(4000)}, {0, rpm(3000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F1Md=1", "F0Md=1", "Ftst=1", "F0Md=1",
                                            "F0Tg=3000", "F1Md=1", "F1Tg=4000"));
}

TEST_F(ApplyPlan, leavesAutomaticEntriesAlone) {
    EXPECT_EQ(apply({{0, Mode::automatic()}, {1, rpm(4000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F1Md=1", "Ftst=1", "F1Md=1", "F1Tg=4000"));
}

TEST_F(ApplyPlan, doesNotClaimAgainWhatIsClaimed) {
    (void)apply({{0, rpm(3000)}});
    forget(harness);
    EXPECT_EQ(apply({{0, rpm(3500)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "F0Md=1", "F0Tg=3500"));
}

TEST_F(ApplyPlan, claimsAFanThatThePlanNamesTwiceOnce) {
    EXPECT_EQ(apply({{0, percent(100)}, {0, rpm(3000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=1", "F0Tg=3000"));
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::fullBlast);
}

TEST_F(ApplyPlan, givesBackFirstWhatItNoLongerManages) {
    (void)apply({{0, rpm(3000)}});
    forget(harness);
    EXPECT_EQ(apply({{1, rpm(4000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=0", "F1Md=1", "Ftst=1", "F1Md=1", "F1Tg=4000"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
}

TEST_F(ApplyPlan, publishesNeitherModeNorTargetOfAFanThatItGaveBack) {
    (void)apply({{0, rpm(3000)}});
    (void)apply({{1, percent(100)}});
    const std::map<std::int64_t, ControlMode> modes{{1, ControlMode::fullBlast}};
    const std::map<std::int64_t, std::int64_t> targets{{1, 6000}};
    EXPECT_EQ(harness.state().perFanMode, modes);
    EXPECT_EQ(harness.state().targets, targets);
}

TEST_F(ApplyPlan, goesOnPublishingModeAndTargetOfAFanThatRefusesToGoBack) {
    (void)apply({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0));
    (void)apply({{1, percent(100)}});
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::manual},
                                                    {1, ControlMode::fullBlast}};
    const std::map<std::int64_t, std::int64_t> targets{{0, 3000}, {1, 6000}};
    EXPECT_EQ(harness.state().perFanMode, modes);
    EXPECT_EQ(harness.state().targets, targets);
}

/// Both fans stand still from 10 s on. Fan 2 keeps the plan busy, so that no step comes meanwhile.
TEST(ApplyPlanOfThreeFans, publishesNoFanAsStoppedThatItGaveBack) {
    ControllerHarness harness(steadyMachine(3), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, percent(0)}, {1, percent(0)}})));
    harness.advance(11s);
    EXPECT_EQ(harness.state().stoppedFans, (std::vector<std::int64_t>{0, 1}));
    harness.mac().smc().add(refusal("F2Md", 1, 0x82));
    forget(harness);
    const auto plan =
        harness.start(harness.controller().applyPlan(planOf({{1, percent(0)}, {2, rpm(3000)}})));
    harness.advance(500ms);
    harness.mac().setHIDTemperature(steadyLabel, 1000);  // not plausible: a tick without its step
    harness.advance(1500ms);
    EXPECT_EQ(*plan, std::nullopt);
    EXPECT_EQ(harness.published.back().stoppedFans, (std::vector<std::int64_t>{1}));
}

TEST_F(ApplyPlan, givesBackAFanThatItNamesOnlyAsAutomatic) {
    (void)apply({{0, rpm(3000)}, {1, rpm(4000)}});
    EXPECT_EQ(apply({{0, Mode::automatic()}, {1, rpm(4000)}}), ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
}

TEST_F(ApplyPlan, tellsAtOnceOfAFanThatRefusesToGoBackAndGoesOn) {
    (void)apply({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    forget(harness);
    EXPECT_EQ(apply({{1, rpm(4000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "F1Md=1", "Ftst=1",
                                            "F0Md=0 (0x86)", "F1Md=1", "F1Tg=4000"));
    EXPECT_THAT(
        told(harness.published),
        ElementsAre("holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)", "holding"));
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(ApplyPlan, tellsOfARefusedReturnBeforeItClaims) {
    (void)apply({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0));
    forget(harness);
    (void)apply({{1, rpm(4000)}});
    EXPECT_EQ(harness.published.front().lastError,
              "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_FALSE(harness.published.front().perFanMode.contains(1));
}

TEST_F(ApplyPlan, aFanThatIsManagedAgainIsNoLongerToBeGivenBack) {
    (void)apply({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    (void)apply({{1, rpm(4000)}});
    forget(harness);
    EXPECT_EQ(apply({{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::applied());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "Ftst=1", "F0Md=1", "F0Tg=3000", "F1Md=1", "F1Tg=4000"));
    harness.advance(5s);  // nor is it tried again
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains(testing::StartsWith("F0Md=0"))));
}

TEST_F(ApplyPlan, aPlanThatManagesNothingWithNothingClaimedReleasesAndStartsNoLoop) {
    EXPECT_EQ(apply({{0, Mode::automatic()}, {1, Mode::automatic()}}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST_F(ApplyPlan, aPlanThatManagesNothingEndsTheHoldOfTheLastOne) {
    (void)apply({{0, rpm(3000)}});
    forget(harness);
    EXPECT_EQ(apply({}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.writes, IsEmpty());
}

TEST_F(ApplyPlan, aPlanThatManagesNothingFailsWhenTheReleaseDoes) {
    harness.mac().smc().add(refusal("Ftst", 0, 0x87));
    EXPECT_EQ(apply({}),
              ControlResult::failed("failed to restore Auto: Ftst=0 rejected (SMC 0x87)"));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x87)"));
}

TEST_F(ApplyPlan, aPlanThatManagesNothingIsHeldWhileAFanRefusesToGoBack) {
    (void)apply({{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 5s));
    forget(harness);
    EXPECT_EQ(apply({}), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "F0Md=0 (0x86)"));
    EXPECT_THAT(
        told(harness.published),
        ElementsAre("holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)", "holding"));
    harness.advance(10s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_FALSE(harness.state().isHolding);
}

TEST_F(ApplyPlan, aSecondPlanFindsTheLoopRunningAndStartsNoOther) {
    (void)apply({{0, rpm(3000)}});
    (void)apply({{0, rpm(3500)}});
    forget(harness);
    harness.advance(2500ms);
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));  // one tick
}

TEST_F(ApplyPlan, countsAsAHeartbeat) {
    (void)apply({{0, rpm(3000)}});
    harness.advance(14s);
    (void)apply({{0, rpm(3000)}});
    harness.advance(14s);
    EXPECT_TRUE(harness.state().isHolding);
    harness.advance(3s);
    EXPECT_EQ(harness.state().lastError, "no heartbeat for >15s — released to Auto");
}

TEST_F(ApplyPlan, countsAsAHeartbeatOnlyWhenItsClaimsAreOver) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 9s));
    harness.mac().smc().add(refusal("F1Md", 1, 0x82, 0s, 18s));
    EXPECT_EQ(apply({{0, rpm(3000)}, {1, rpm(4000)}}), ControlResult::applied());
    harness.advance(14s);  // 32 s after the client was last heard
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_TRUE(harness.state().isHolding);
    harness.advance(3s);
    EXPECT_EQ(harness.state().lastError, "no heartbeat for >15s — released to Auto");
}

}  // namespace
}  // namespace airflow::control
