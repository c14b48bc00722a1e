#include "AccessLog.h"

namespace airflow::control {
namespace {

using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint8_t refused = 0x86;

void holdBothFans(ControllerBench& bench) {
    (void)bench.run(bench.controller().setManual(0, 3000));
    (void)bench.run(bench.controller().setManual(1, 4000));
    bench.writes.clear();
    bench.published.clear();
}

plan::FanControlPlan onlyFan(std::int64_t fan, double rpm) {
    return {.fans = {{.fanID = fan, .mode = plan::FanControlModePlan::fixedRPM(rpm)}},
            .rules = {},
            .tuning = {}};
}

TEST(ReleaseRetry, triesAgainEveryTwoSecondsUntilTheMachineAccepts) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused, 7s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(7s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.state().lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    bench.advance(60s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 2000, 4000, 6000));
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(8000));
}

TEST(ReleaseRetry, waitsTwoSecondsSharp) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused);
    (void)bench.run(bench.controller().automatic());
    bench.writes.clear();
    bench.advance(1999ms);
    EXPECT_THAT(bench.writes, IsEmpty());
    bench.advance(1ms);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)"));
}

TEST(ReleaseRetry, countsTheTwoSecondsFromTheEndOfAnAttempt) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    bench.mac().smc().add(Fault{.key = "F0Md", .value = 0.0, .result = refused, .latency = 300ms});
    (void)bench.run(bench.controller().automatic());
    bench.advance(5s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 2300, 4600));
}

TEST(ReleaseRetry, asksOnlyTheFansThatRefusedAndLeavesForceTestRaised) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused, 1s);
    (void)bench.run(bench.controller().automatic());
    bench.writes.clear();
    bench.advance(10s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0"));
    EXPECT_TRUE(bench.mac().forceTest());
}

TEST(ReleaseRetry, goesOnForTheFansThatStillRefuse) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused, 3s);
    breakCalls(bench, "F1Md", 0, 0xE00002C2, 5s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(20s);
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(4000));
    EXPECT_THAT(log.timesOf("F1Md=0 (failed)"), ElementsAre(0, 2000, 4000));
    EXPECT_THAT(log.timesOf("F1Md=0"), ElementsAre(6000));
}

TEST(ReleaseRetry, thatSucceedsPublishesOnceThatNothingIsHeld) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused, 5s);
    (void)bench.run(bench.controller().automatic());
    bench.published.clear();
    bench.advance(5s);
    EXPECT_THAT(bench.published, IsEmpty());
    bench.advance(60s);
    ASSERT_EQ(bench.published.size(), 1U);
    EXPECT_FALSE(bench.published[0].isHolding);
    EXPECT_EQ(bench.published[0].lastError, std::nullopt);
}

TEST(ReleaseRetry, thatSucceedsWhileAPlanHoldsAnotherFanPublishesThatItHolds) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused, 1s);
    EXPECT_EQ(bench.run(bench.controller().applyPlan(onlyFan(1, 4000))), ControlResult::applied());
    // What was published before the plan's own state told of the refusal.
    EXPECT_EQ(bench.published[0].lastError, "failed to restore Auto: F0Md=0 rejected (SMC 0x86)");
    EXPECT_TRUE(bench.published[0].isHolding);
    bench.advance(2s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_TRUE(bench.state().isHolding);
    EXPECT_EQ(bench.state().lastError, std::nullopt);
}

TEST(ReleaseRetry, neverGivesUp) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused, 24h);
    (void)bench.run(bench.controller().automatic());
    bench.advance(24h - 1s);
    EXPECT_EQ(log.timesOf("F0Md=0 (0x86)").size(), 43200U);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    bench.advance(1s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST(ReleaseRetry, ofForceTestAloneReleasesEverythingAgain) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "Ftst", 0, refused, 3s);
    (void)bench.run(bench.controller().automatic());
    EXPECT_FALSE(bench.state().isHolding);
    bench.writes.clear();
    bench.published.clear();
    bench.advance(2s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0 (0x86)"));
    ControlState failing = ControlState::idle();
    failing.lastError = "failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(bench.published, ElementsAre(failing));
    bench.writes.clear();
    bench.advance(60s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(bench.published, ElementsAre(failing, ControlState::idle()));
    EXPECT_FALSE(bench.mac().forceTest());
}

TEST(ReleaseRetry, ofTheWholeReleaseTurnsToTheFanThatRefusesThen) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "Ftst", 0, refused, 1s);
    refuse(bench, "F1Md", 0, refused, 3s, 1s);
    (void)bench.run(bench.controller().automatic());
    bench.writes.clear();
    bench.advance(60s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0 (0x86)", "Ftst=1", "F1Md=0"));
}

TEST(ReleaseRetry, endsWhenAnotherReleaseWasFasterAndDidItAll) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused, 1s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.writes.clear();
    bench.advance(60s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
}

TEST(ReleaseRetry, runsOnceHoweverManyReleasesFail) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused);
    (void)bench.run(bench.controller().automatic());
    bench.advance(500ms);
    (void)bench.run(bench.controller().automatic());
    bench.advance(500ms);
    (void)bench.run(bench.controller().restoreAuto());
    bench.advance(3500ms);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 500, 1000, 2000, 4000));
}

TEST(ReleaseRetry, startsAgainForALaterFailure) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused, 1s);
    refuse(bench, "F0Md", 0, refused, 11s, 10s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(10s);
    (void)bench.run(bench.controller().automatic());
    bench.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 10000));
    EXPECT_THAT(log.timesOf("F0Md=0"), ElementsAre(2000, 12000));
}

TEST(ReleaseRetry, isCancelledByAPlan) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused);
    (void)bench.run(bench.controller().automatic());
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
    bench.advance(10s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0));
    EXPECT_TRUE(bench.state().isHolding);
}

TEST(ReleaseRetry, ofAPlanDoesNotLoseItsHandleToAnOlderOne) {
    ControllerBench bench;
    holdBothFans(bench);
    const AccessLog log(bench);
    refuse(bench, "F0Md", 0, refused);
    (void)bench.run(bench.controller().automatic());
    bench.advance(1s);
    (void)bench.run(bench.controller().applyPlan(onlyFan(1, 4000)));
    bench.advance(1200ms);
    // Would start a second loop if nobody knew of the first one any more.
    (void)bench.run(bench.controller().automatic());
    bench.advance(5s);
    EXPECT_THAT(log.timesOf("F0Md=0 (0x86)"), ElementsAre(0, 1000, 1080, 2280, 3000, 5000, 7000));
}

TEST(ReleaseRetry, ofAPlanThatWantsNothingReleasesEverything) {
    ControllerBench bench;
    holdBothFans(bench);
    refuse(bench, "F0Md", 0, refused, 1s);
    // The release of the fans that are no longer wanted fails; they stay claimed and retried.
    EXPECT_EQ(bench.run(bench.controller().applyPlan(plan::FanControlPlan::allAutomatic())),
              ControlResult::applied());
    EXPECT_THAT(bench.writes, testing::Contains("F0Md=0 (0x86)"));
    bench.advance(10s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

TEST(ReleaseRetry, doesNotKeepADroppedControllerAlive) {
    ControllerBench bench;
    refuse(bench, "Ftst", 0, refused);
    (void)bench.run(bench.controller().restoreAuto());
    const std::weak_ptr<LocalFanController> controller = bench.system.controller;
    bench.writes.clear();
    bench.system.controller.reset();
    EXPECT_TRUE(controller.expired());
    bench.advance(10s);
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
}

}  // namespace
}  // namespace airflow::control
