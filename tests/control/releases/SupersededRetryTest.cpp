// A plan that arrives while the last write of a retry is under way: it is the one that holds.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

/// A client that lives until this time of the machine: a heartbeat about every second.
void liveUntil(ControllerHarness& harness, concurrency::Duration time) {
    while (harness.system.elapsed() < time) {
        harness.run(harness.controller().heartbeat());
        harness.advance(std::min<concurrency::Duration>(1s, time - harness.system.elapsed()));
    }
}

bool isRetrying(const ControllerHarness& harness) {
    return harness.system.runtime.pending().find("release retry") != std::string::npos;
}

/// The fan is held, refuses a release until 3 s, and is asked again at 2 s. That request takes 10
/// ms, in which a client wants the fan at 4000 RPM.
class RefusedRetryAfterAPlan : public testing::TestWithParam<std::uint64_t> {
protected:
    RefusedRetryAfterAPlan() {
        (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
        Fault slowRefusal = refusal("F0Md", 0, 0x86, 0s, 3s);
        slowRefusal.latency = 10ms;
        harness.mac().smc().add(slowRefusal);
        EXPECT_EQ(harness.run(harness.controller().automatic()),
                  ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
        forget(harness);
        atWrite(harness, "F0Md", 0, 1, [this] {
            plan = harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        liveUntil(harness, 2500ms);
    }

    ControllerHarness harness{steadyMachine(1), {.seed = GetParam(), .jitter = 0}};
    Answer plan;
};

TEST_P(RefusedRetryAfterAPlan, leavesThePlansFanHeld) {
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
}

TEST_P(RefusedRetryAfterAPlan, startsNoOtherRetry) {
    EXPECT_FALSE(isRetrying(harness));
    forget(harness);
    liveUntil(harness, 60s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains(testing::EndsWith("=0"))));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_THAT(told(harness.published), testing::Each("holding"));
}

/// The plan's first tick comes at 3.5 s, and its snapshot takes 0.8 s.
TEST_P(RefusedRetryAfterAPlan, leavesATickThatWaitsForItsSnapshotToItsWork) {
    liveUntil(harness, 3300ms);
    harness.mac().smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 800ms});
    forget(harness);
    liveUntil(harness, 6s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=4000"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
}

TEST_P(RefusedRetryAfterAPlan, leavesThePlanItsWatchdog) {
    harness.advance(20s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.state().lastError, "no heartbeat for >15s — released to Auto");
}

INSTANTIATE_TEST_SUITE_P(Seeds, RefusedRetryAfterAPlan, testing::Values(0U, 1U, 2U, 3U));

TEST(RetryAfterAPlan, leavesThePlansFanAloneWhenItsLastWriteIsTaken) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    (void)harness.run(harness.controller().automatic());
    harness.mac().smc().add(Fault{.key = "F0Md", .value = 0.0, .latency = 10ms});
    Answer plan;
    atWrite(harness, "F0Md", 0, 1, [&] {
        plan = harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}})));
    });
    harness.advance(10s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_TRUE(harness.state().isHolding);
}

/// The refusals take 0.3 s each, from 1.5 s to 5 s.
TEST(RetryAfterAPlan, neverUndoesAPlanOfAClientThatLives) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    auto slowRefusal = refusal("F0Md", 0, 0x86, 1500ms, 5s);
    slowRefusal.latency = 300ms;
    harness.mac().smc().add(slowRefusal);
    harness.advance(1s);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(2s - harness.system.elapsed());
    const Answer released = harness.start(harness.controller().automatic());
    harness.advance(4500ms - harness.system.elapsed());
    EXPECT_EQ(*released,
              ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 4000_rpm));
    liveUntil(harness, 5s);
    EXPECT_EQ(*plan, ControlResult::applied());
    forget(harness);
    liveUntil(harness, 60s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F0Md=0")));
    EXPECT_THAT(told(harness.published), testing::Each("holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
}

/// A release is at work when the plan comes. The retry that the plan ends must not wait for it: its
/// sleep is over at once from now on.
TEST(RetryAfterAPlan, endsThoughAReleaseIsUnderWay) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F0Md", 0));
    (void)harness.run(harness.controller().automatic());
    EXPECT_TRUE(isRetrying(harness));
    slowDown(harness, 50ms);
    harness.system.runtime.limitJobs(1000);  // a retry that spins never lets time move
    const Answer released = harness.start(harness.controller().automatic());
    (void)harness.start(harness.controller().setManual(0_fan, 4000_rpm));
    ASSERT_NO_THROW(harness.advance(10ms));
    EXPECT_EQ(*released, std::nullopt);
    EXPECT_FALSE(isRetrying(harness));
}

/// Force-test was not lowered, so the retry releases everything, and a plan comes during this write
/// of it. What the SMC refuses the retry is the plan's to find out, and to tell.
void expectThatARetryTellsNothing(Fault refused, const std::string& lastWrite) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().fullBlast());
    harness.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 1s));
    (void)harness.run(harness.controller().automatic());
    refused.latency = 50ms;
    harness.mac().smc().add(std::move(refused));
    slowDown(harness, 50ms);
    forget(harness);
    atWrite(harness, lastWrite, 0, 1,
            [&] { (void)harness.start(harness.controller().setManual(0_fan, 4000_rpm)); });
    liveUntil(harness, 10s);
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_THAT(told(harness.published),
                testing::AllOf(testing::Not(IsEmpty()), testing::Each("holding")));
}

TEST(RetryAfterAPlan, publishesNothingOfAFanThatRefuses) {
    expectThatARetryTellsNothing(refusal("F0Md", 0, 0x86, 0s, 3s), "F1Md");
}

TEST(RetryAfterAPlan, publishesNothingOfForceTest) {
    expectThatARetryTellsNothing(refusal("Ftst", 0), "Ftst");
}

/// The plan's own step has a snapshot that waits from 2 s to 4.2 s.
TEST(RetryAfterAPlan, leavesTheStepOfThePlanToItsWork) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    Fault slowRefusal = refusal("F0Md", 0, 0x86, 0s, 3s);
    slowRefusal.latency = 10ms;
    harness.mac().smc().add(slowRefusal);
    (void)harness.run(harness.controller().automatic());
    harness.mac().smc().add(Fault{.from = 1900ms,
                                  .until = 2500ms,
                                  .key = "FNum",
                                  .operation = Fault::Operation::read,
                                  .latency = 2200ms});
    Answer plan;
    atWrite(harness, "F0Md", 0, 1, [&] {
        plan = harness.start(harness.controller().applyPlan(planOf({{0, rpm(4000)}})));
    });
    harness.advance(4100ms - harness.system.elapsed());
    EXPECT_EQ(*plan, std::nullopt);
    forget(harness);
    harness.advance(2s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(told(harness.published), testing::Each("holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);

    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);  // the plan's loop watches
}

}  // namespace
}  // namespace airflow::control
