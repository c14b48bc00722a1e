// A plan that arrives while the last write of a retry is under way: it is the one that holds.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

/// A client that lives until this time of the machine: a heartbeat about every second.
void liveUntil(ControllerBench& bench, concurrency::Duration time) {
    while (bench.system.elapsed() < time) {
        bench.run(bench.controller().heartbeat());
        bench.advance(std::min<concurrency::Duration>(1s, time - bench.system.elapsed()));
    }
}

bool isRetrying(const ControllerBench& bench) {
    return bench.system.runtime.pending().find("release retry") != std::string::npos;
}

/// The fan is held, refuses a release until 3 s, and is asked again at 2 s. That request takes 10
/// ms, in which a client wants the fan at 4000 RPM.
class RefusedRetryBehindAPlan : public testing::TestWithParam<std::uint64_t> {
protected:
    RefusedRetryBehindAPlan() {
        (void)bench.run(bench.controller().setManual(0, 3000));
        Fault slowRefusal = refusal("F0Md", 0, 0x86, 0s, 3s);
        slowRefusal.latency = 10ms;
        bench.mac().smc().add(slowRefusal);
        EXPECT_EQ(bench.run(bench.controller().automatic()),
                  ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
        forget(bench);
        atWrite(bench, "F0Md", 0, 1, [this] {
            plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}})));
        });
        liveUntil(bench, 2500ms);
    }

    ControllerBench bench{steadyMachine(1), {.seed = GetParam(), .jitter = 0}};
    Answer plan;
};

TEST_P(RefusedRetryBehindAPlan, leavesThePlansFanHeld) {
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_THAT(told(bench.published), ElementsAre("holding"));
}

TEST_P(RefusedRetryBehindAPlan, startsNoOtherRetry) {
    EXPECT_FALSE(isRetrying(bench));
    forget(bench);
    liveUntil(bench, 60s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains(testing::EndsWith("=0"))));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_THAT(told(bench.published), testing::Each("holding"));
}

/// The plan's first tick comes at 3.5 s, and its snapshot takes 0.8 s.
TEST_P(RefusedRetryBehindAPlan, leavesATickThatWaitsForItsSnapshotToItsWork) {
    liveUntil(bench, 3300ms);
    bench.mac().smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 800ms});
    forget(bench);
    liveUntil(bench, 6s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=4000"));
    EXPECT_THAT(told(bench.published), ElementsAre("holding"));
}

TEST_P(RefusedRetryBehindAPlan, leavesThePlanItsWatchdog) {
    bench.advance(20s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.state().lastError, "no heartbeat for >15s — released to Auto");
}

INSTANTIATE_TEST_SUITE_P(Seeds, RefusedRetryBehindAPlan, testing::Values(0U, 1U, 2U, 3U));

TEST(RetryBehindAPlan, leavesThePlansFanAloneWhenItsLastWriteIsTaken) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    (void)bench.run(bench.controller().automatic());
    bench.mac().smc().add(Fault{.key = "F0Md", .value = 0.0, .latency = 10ms});
    Answer plan;
    atWrite(bench, "F0Md", 0, 1,
            [&] { plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}}))); });
    bench.advance(10s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_TRUE(bench.state().isHolding);
}

/// The refusals take 0.3 s each, from 1.5 s to 5 s.
TEST(RetryBehindAPlan, neverUndoesAPlanOfAClientThatLives) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    auto slowRefusal = refusal("F0Md", 0, 0x86, 1500ms, 5s);
    slowRefusal.latency = 300ms;
    bench.mac().smc().add(slowRefusal);
    bench.advance(1s);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.advance(2s - bench.system.elapsed());
    const Answer released = bench.start(bench.controller().automatic());
    bench.advance(4500ms - bench.system.elapsed());
    EXPECT_EQ(*released,
              ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
    const Answer plan = bench.start(bench.controller().setManual(0, 4000));
    liveUntil(bench, 5s);
    EXPECT_EQ(*plan, ControlResult::applied());
    forget(bench);
    liveUntil(bench, 60s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F0Md=0")));
    EXPECT_THAT(told(bench.published), testing::Each("holding"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
}

/// A release is at work when the plan comes. The retry that the plan ends must not wait for it: its
/// sleep is over at once from now on.
TEST(RetryBehindAPlan, endsThoughAReleaseIsUnderWay) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.mac().smc().add(refusal("F0Md", 0));
    (void)bench.run(bench.controller().automatic());
    EXPECT_TRUE(isRetrying(bench));
    slowDown(bench, 50ms);
    bench.system.runtime.limitJobs(1000);  // a retry that spins never lets time move
    const Answer released = bench.start(bench.controller().automatic());
    (void)bench.start(bench.controller().setManual(0, 4000));
    ASSERT_NO_THROW(bench.advance(10ms));
    EXPECT_EQ(*released, std::nullopt);
    EXPECT_FALSE(isRetrying(bench));
}

/// Force-test was not lowered, so the retry releases everything, and a plan comes during this write
/// of it. What the SMC refuses the retry is the plan's to find out, and to tell.
void expectThatARetryTellsNothing(Fault refused, const std::string& lastWrite) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    (void)bench.run(bench.controller().fullBlast());
    bench.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 1s));
    (void)bench.run(bench.controller().automatic());
    refused.latency = 50ms;
    bench.mac().smc().add(std::move(refused));
    slowDown(bench, 50ms);
    forget(bench);
    atWrite(bench, lastWrite, 0, 1,
            [&] { (void)bench.start(bench.controller().setManual(0, 4000)); });
    liveUntil(bench, 10s);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_THAT(told(bench.published),
                testing::AllOf(testing::Not(IsEmpty()), testing::Each("holding")));
}

TEST(RetryBehindAPlan, tellsNothingOfAFanThatRefuses) {
    expectThatARetryTellsNothing(refusal("F0Md", 0, 0x86, 0s, 3s), "F1Md");
}

TEST(RetryBehindAPlan, tellsNothingOfForceTest) {
    expectThatARetryTellsNothing(refusal("Ftst", 0), "Ftst");
}

/// The plan's own step has a snapshot that waits from 2 s to 4.2 s.
TEST(RetryBehindAPlan, leavesTheStepOfThePlanToItsWork) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    (void)bench.run(bench.controller().setManual(0, 3000));
    Fault slowRefusal = refusal("F0Md", 0, 0x86, 0s, 3s);
    slowRefusal.latency = 10ms;
    bench.mac().smc().add(slowRefusal);
    (void)bench.run(bench.controller().automatic());
    bench.mac().smc().add(Fault{.from = 1900ms,
                                .until = 2500ms,
                                .key = "FNum",
                                .operation = Fault::Operation::read,
                                .latency = 2200ms});
    Answer plan;
    atWrite(bench, "F0Md", 0, 1,
            [&] { plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}}))); });
    bench.advance(4100ms - bench.system.elapsed());
    EXPECT_EQ(*plan, std::nullopt);
    forget(bench);
    bench.advance(2s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(told(bench.published), testing::Each("holding"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);

    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(2s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);  // the plan's loop watches
}

}  // namespace
}  // namespace airflow::control
