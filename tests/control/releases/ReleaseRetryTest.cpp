#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

plan::FanControlPlan onlyFan(std::int64_t fan, double rpm) {
    return {.fans = {{.fanID = fan, .mode = plan::FanControlModePlan::fixedRPM(rpm)}},
            .rules = {},
            .tuning = {}};
}

TEST(ReleaseRetry, triesAgainEveryTwoSecondsUntilTheMachineAccepts) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused, 7s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(7s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    harness.advance(60s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 2000, 4000, 6000));
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(8000));
}

TEST(ReleaseRetry, waitsTwoSecondsSharp) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused);
    (void)harness.run(harness.controller().automatic());
    harness.writes.clear();
    harness.advance(1999ms);
    EXPECT_THAT(harness.writes, IsEmpty());
    harness.advance(1ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)"));
}

TEST(ReleaseRetry, countsTheTwoSecondsFromTheEndOfAnAttempt) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    harness.mac().smc().add(
        Fault{.key = "F0Md", .value = 0.0, .result = refused, .latency = 300ms});
    (void)harness.run(harness.controller().automatic());
    harness.advance(5s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 2300, 4600));
}

TEST(ReleaseRetry, asksOnlyTheFansThatRefusedAndLeavesForceTestRaised) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused, 1s);
    (void)harness.run(harness.controller().automatic());
    harness.writes.clear();
    harness.advance(10s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_TRUE(harness.mac().forceTest());
}

TEST(ReleaseRetry, goesOnForTheFansThatStillRefuse) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused, 3s);
    breakCalls(harness, "F1Md", 0, 0xE00002C2, 5s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(20s);
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(4000));
    EXPECT_THAT(log.timesOf("F1Md=0 (failed)"), ElementsAre(0, 2000, 4000));
    EXPECT_THAT(log.timesOf("F1Md=0"), ElementsAre(6000));
}

TEST(ReleaseRetry, thatSucceedsPublishesOnceThatNothingIsHeld) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused, 5s);
    (void)harness.run(harness.controller().automatic());
    harness.published.clear();
    harness.advance(5s);
    EXPECT_THAT(harness.published, IsEmpty());
    harness.advance(60s);
    ASSERT_EQ(harness.published.size(), 1U);
    EXPECT_FALSE(harness.published[0].isHolding);
    EXPECT_EQ(harness.published[0].lastError, std::nullopt);
}

TEST(ReleaseRetry, thatSucceedsWhileAPlanHoldsAnotherFanPublishesThatItHolds) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused, 1s);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(onlyFan(1, 4000))),
              ControlResult::applied());
    // What was published before the plan's own state told of the refusal.
    EXPECT_EQ(harness.published[0].lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_TRUE(harness.published[0].isHolding);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
    EXPECT_TRUE(harness.state().isHolding);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
}

TEST(ReleaseRetry, neverGivesUp) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused, 24h);
    (void)harness.run(harness.controller().automatic());
    harness.advance(24h - 1s);
    EXPECT_EQ(log.timesOf("F0Md=0 (0x86)").size(), 43200U);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    harness.advance(1s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST(ReleaseRetry, ofForceTestAloneReleasesEverythingAgain) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "Ftst", 0, refused, 3s);
    (void)harness.run(harness.controller().automatic());
    EXPECT_FALSE(harness.state().isHolding);
    harness.writes.clear();
    harness.published.clear();
    harness.advance(2s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0 (0x86)"));
    ControlState failing = ControlState::idle();
    failing.lastError = "failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(harness.published, ElementsAre(failing));
    harness.writes.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(harness.published, ElementsAre(failing, ControlState::idle()));
    EXPECT_FALSE(harness.mac().forceTest());
}

TEST(ReleaseRetry, ofTheWholeReleaseTurnsToTheFanThatRefusesThen) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "Ftst", 0, refused, 1s);
    refuse(harness, "F1Md", 0, refused, 3s, 1s);
    (void)harness.run(harness.controller().automatic());
    harness.writes.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=0", "F1Md=0 (0x86)", "Ftst=1", "F1Md=0"));
}

TEST(ReleaseRetry, endsWhenAnotherReleaseWasFasterAndDidItAll) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused, 1s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.writes.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
}

TEST(ReleaseRetry, runsOnceHoweverManyReleasesFail) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused);
    (void)harness.run(harness.controller().automatic());
    harness.advance(500ms);
    (void)harness.run(harness.controller().automatic());
    harness.advance(500ms);
    (void)harness.run(harness.controller().restoreAuto());
    harness.advance(3500ms);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 500, 1000, 2000, 4000));
}

TEST(ReleaseRetry, startsAgainForALaterFailure) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused, 1s);
    refuse(harness, "F0Md", 0, refused, 11s, 10s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(10s);
    (void)harness.run(harness.controller().automatic());
    harness.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 10000));
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(2000, 12000));
}

TEST(ReleaseRetry, isCancelledByAPlan) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused);
    (void)harness.run(harness.controller().automatic());
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
    harness.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0));
    EXPECT_TRUE(harness.state().isHolding);
}

TEST(ReleaseRetry, ofAPlanDoesNotLoseItsHandleToAnOlderOne) {
    ControllerHarness harness;
    holdBothFans(harness);
    const AccessLog log(harness);
    refuse(harness, "F0Md", 0, refused);
    (void)harness.run(harness.controller().automatic());
    harness.advance(1s);
    (void)harness.run(harness.controller().applyPlan(onlyFan(1, 4000)));
    harness.advance(1200ms);
    // Would start a second loop if nobody knew of the first one any more.
    (void)harness.run(harness.controller().automatic());
    harness.advance(5s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 1000, 1080, 2280, 3000, 5000, 7000));
}

TEST(ReleaseRetry, ofAPlanThatWantsNothingReleasesEverything) {
    ControllerHarness harness;
    holdBothFans(harness);
    refuse(harness, "F0Md", 0, refused, 1s);
    // The release of the fans that are no longer wanted fails; they stay claimed and retried.
    EXPECT_EQ(harness.run(harness.controller().applyPlan(plan::FanControlPlan::allAutomatic())),
              ControlResult::applied());
    EXPECT_THAT(harness.writes, testing::Contains("F0Md=0 (0x86)"));
    harness.advance(10s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

TEST(ReleaseRetry, doesNotKeepADroppedControllerAlive) {
    ControllerHarness harness;
    refuse(harness, "Ftst", 0, refused);
    (void)harness.run(harness.controller().restoreAuto());
    const std::weak_ptr<LocalFanController> controller = harness.system.controller;
    harness.writes.clear();
    harness.system.controller.reset();
    EXPECT_TRUE(controller.expired());
    harness.advance(10s);
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_EQ(harness.system.runtime.pending().find("release retry"), std::string::npos);
}

}  // namespace
}  // namespace airflow::control
