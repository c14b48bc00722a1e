// What a retry tells when it has given the last pending fan back: that a fan refuses is over, but
// whatever else is shown is not the retry's to take away. A release that is under way is left
// alone.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

const std::string fan0Refuses = "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";
const std::string forceTestStays =
    "not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x86)";

class RetryTelling : public testing::Test {
protected:
    void advanceTo(concurrency::Duration time) { harness.advance(time - harness.system.elapsed()); }
    /// Fan 0, which a plan has dropped at this time, refuses to go back until another, and is
    /// asked again two seconds after the plan.
    void dropFan0(concurrency::Duration time, concurrency::Duration until) {
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
        harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, until));
        advanceTo(time);
        (void)harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}})));
    }
    /// Each write takes 10 ms from now on.
    void slowDownWrites() { harness.mac().smc().add(Fault{.latency = 10ms}); }
    [[nodiscard]] bool isRetrying() const {
        return harness.system.runtime.pending().find("release retry") != std::string::npos;
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

/// The retry wakes while the release asks for the fans. It goes on for the sake of force-test.
TEST_F(RetryTelling, aRefusalOfForceTestThatARestorePublishedMeanwhileIsShownUntilItIsLowered) {
    dropFan0(1s, 2s);
    advanceTo(2975ms);
    auto forceTest = refusal("Ftst", 0, 0x86, 0s, 6s);
    forceTest.latency = 10ms;
    harness.mac().smc().add(forceTest);
    slowDownWrites();
    forget(harness);
    const auto restored = harness.start(harness.controller().restoreAuto());
    harness.advance(100ms);
    EXPECT_EQ(*restored, "failed to restore Auto: Ftst=0 rejected (SMC 0x86)");
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0 (0x86)"));
    EXPECT_THAT(told(harness.published), ElementsAre(forceTestStays));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0 (0x86)",  //
                                            "Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre(forceTestStays, "not holding"));
    EXPECT_FALSE(harness.mac().forceTest());
    EXPECT_FALSE(isRetrying());
}

/// The tick at 3.08 s releases at 3.16 s, and the retry wakes at 3.185 s.
TEST_F(RetryTelling, theReasonOfASafetyReleaseDuringWhichTheRetryWakesIsShown) {
    dropFan0(1185ms, 2s);
    advanceTo(3s);
    harness.system.runtime.jumpDate(concurrency::Seconds(100));
    slowDownWrites();
    forget(harness);
    harness.advance(300ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(
        told(harness.published),
        ElementsAre("not holding", "not holding: no heartbeat for >15s — released to Auto"));
}

/// The retry wakes at 2 s for the sake of force-test, and finds everything given back.
TEST_F(RetryTelling, theReasonOfASafetyReleaseWhileTheRetrySleepsIsShown) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 1s));
    (void)harness.run(harness.controller().automatic());
    EXPECT_EQ(told(harness.published).back(), forceTestStays);
    advanceTo(1500ms);
    harness.run(harness.controller().releaseForSafety(HeartbeatLost{}));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: no heartbeat for >15s — released to Auto"));
    EXPECT_FALSE(isRetrying());
}

/// The retry wakes at 3.3 s, between the end of the plan and the next tick. Nothing is held then.
TEST_F(RetryTelling, thatAPlanCouldNotClaimAFanGoesOnBeingShownUntilTheNextTick) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 2500ms));
    harness.mac().smc().add(refusal("F1Md", 1));
    advanceTo(1300ms);
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}}))),
              ControlResult::rejected(134));
    EXPECT_THAT(told(harness.published),
                ElementsAre(fan0Refuses, "holding", "holding: applyPlan: rejected(code: 134)"));
    forget(harness);
    advanceTo(3400ms);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_FALSE(isRetrying());
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: applyPlan: rejected(code: 134)"));
    advanceTo(4500ms);
    EXPECT_EQ(told(harness.published).back(), "not holding");
}

/// The tick at 3.08 s finds fan 1 taken back, and its "not holding" is for that tick, whatever is
/// claimed. The retry wakes at 3.3 s.
TEST_F(RetryTelling, thatTheFirmwareTookAFanBackGoesOnBeingShownUntilTheNextTick) {
    dropFan0(1300ms, 2500ms);
    harness.mac().smc().add(misreading("F1Md", 3, 3s, 4s));
    advanceTo(3s);
    forget(harness);
    advanceTo(3400ms);
    EXPECT_FALSE(isRetrying());
    const std::string fan1Reverted = "not holding: reclaimed: fan(s) [1] reverted to mode 3";
    EXPECT_THAT(told(harness.published), ElementsAre(fan1Reverted, fan1Reverted));
    advanceTo(5s);
    EXPECT_EQ(told(harness.published).back(), "holding");
}

/// A plan that manages nothing has its loop end with the last fan, and that loop tells no more.
TEST_F(RetryTelling, thatTheLastFanIsHeldIsClearedThoughAnotherFailureIsShown) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 2500ms));
    advanceTo(1300ms);
    (void)harness.run(harness.controller().applyPlan({}));
    advanceTo(3s);
    forget(harness);
    harness.mac().setHIDTemperature(steadyLabel, 1000);  // not plausible
    advanceTo(3250ms);
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: temperature data unavailable (1/2)"));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: temperature data unavailable (1/2)"));
}

TEST_F(RetryTelling, thatAFanRefusesIsClearedOnceItWentBack) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    (void)harness.run(harness.controller().automatic());
    EXPECT_EQ(told(harness.published).back(), fan0Refuses);
    forget(harness);
    harness.advance(3s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
}

/// Fan 0 goes back at 2 s, and fan 1 at 6 s.
TEST_F(RetryTelling, aFanThatWentBackIsShownNoLongerThoughAnotherOneRefuses) {
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}})));
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    harness.mac().smc().add(refusal("F1Md", 0, 0x86, 0s, 5s));
    (void)harness.run(harness.controller().automatic());
    advanceTo(3s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(harness.state().perFanMode, ElementsAre(testing::Key(1)));
    EXPECT_THAT(harness.state().targets, ElementsAre(testing::Pair(1, 4000)));
    EXPECT_TRUE(harness.state().isHolding);
    advanceTo(7s);
    EXPECT_EQ(harness.state(), ControlState::idle());
}

/// The retry wakes while the restore asks for the same fan, and has its way two seconds later.
TEST_F(RetryTelling, whatARestorePublishedOfTheFanMeanwhileIsClearedOnceTheFanWentBack) {
    dropFan0(1s, 3s);
    advanceTo(2975ms);
    harness.mac().smc().removeFaults();
    auto fan0 = refusal("F0Md", 0, 0x86, 0s, 3s);
    fan0.latency = 10ms;
    harness.mac().smc().add(fan0);
    slowDownWrites();
    forget(harness);
    const auto restored = harness.start(harness.controller().restoreAuto());
    harness.advance(100ms);
    EXPECT_EQ(*restored, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)", "F1Md=0"));
    EXPECT_THAT(told(harness.published), ElementsAre(fan0Refuses));
    forget(harness);
    harness.advance(2s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_FALSE(isRetrying());
}

}  // namespace
}  // namespace airflow::control
