// A plan that arrives while the last write of a retry is under way, and what that retry does to it.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

/// The fan is held, refuses a release until 3 s, and is asked again at 2 s. That request takes 10
/// ms, in which a client wants the fan at 4000 RPM.
class RetryOvertaken : public testing::TestWithParam<std::uint64_t> {
protected:
    RetryOvertaken() {
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
        bench.advance(2500ms - bench.system.elapsed());
    }
    void advanceTo(concurrency::Duration time) { bench.advance(time - bench.system.elapsed()); }

    ControllerBench bench{steadyMachine(1), {.seed = GetParam(), .jitter = 0}};
    Answer plan;
};

TEST_P(RetryOvertaken, looksAtFirstAsIfThePlanHadWon) {
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_THAT(told(bench.published), ElementsAre("holding"));
}

/// The refusal begins a new retry, and that one begins with the plan's generation, which nothing
/// supersedes. Two seconds later nothing is pending, so it gives everything back and ends the hold
/// loop: the plan's fan, too. No fan is left forced, but the plan is lost, without a word.
TEST_P(RetryOvertaken, undoesThePlanTwoSecondsLater) {
    forget(bench);
    advanceTo(4s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    advanceTo(4100ms);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_FALSE(bench.mac().forceTest());
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=4000", "Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("holding", "not holding"));

    forget(bench);
    bench.run(bench.controller().heartbeat());
    bench.advance(60s);
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_EQ(bench.system.runtime.pending().find("release retry"), std::string::npos);
}

TEST_P(RetryOvertaken, leavesThePlanAloneWhenItsLastWriteIsTaken) {
    // The same once more, with a refusal that is over when the plan arrives.
    bench.advance(5s);
    (void)bench.run(bench.controller().setManual(0, 3000));
    const auto now = bench.system.elapsed();
    bench.mac().smc().removeFaults();
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, now, now + 1s));
    (void)bench.run(bench.controller().automatic());
    bench.mac().smc().add(Fault{.key = "F0Md", .value = 0.0, .latency = 10ms});
    atWrite(bench, "F0Md", 0, 1,
            [this] { plan = bench.start(bench.controller().applyPlan(planOf({{0, rpm(4000)}}))); });
    bench.advance(10s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_TRUE(bench.state().isHolding);
}

/// The plan's first tick comes at 3.5 s, and its snapshot takes 0.8 s: it still waits when the
/// release that nobody wanted comes at 4 s. The plan is in force all the same, so the tick forces
/// its fan again behind the release; but that has cancelled the loop, which ends with this tick.
TEST_P(RetryOvertaken, leavesThePlansFanForcedAndUnwatchedBehindATickThatWaited) {
    advanceTo(3300ms);
    bench.mac().smc().add(
        Fault{.key = "FNum", .operation = Fault::Operation::read, .latency = 800ms});
    forget(bench);
    advanceTo(6s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_TRUE(bench.state().isHolding);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0", "Ftst=1", "F0Md=1",
                                          "F0Md=1", "F0Tg=4000"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", "holding"));

    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);

    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);  // the next full release finds it
}

INSTANTIATE_TEST_SUITE_P(Seeds, RetryOvertaken, testing::Values(0U, 1U, 2U, 3U));

/// The same for the plan's own step, whose snapshot waits from 2 s to 4.2 s: it forces the fan and
/// is answered "applied" behind the release, which has ended the loop that the plan had begun.
TEST(RetryOvertakenStep, leavesThePlansFanForcedAndUnwatchedToo) {
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
    EXPECT_EQ(told(bench.published).front(), "not holding");
    EXPECT_EQ(told(bench.published).back(), "holding");

    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
}

/// Fan 0 is refused until 1.2 s, which ends the claims of a plan, and busy until 3 s: a tick claims
/// it from about 2.1 s on. A plan without fans gives back what there is and ends the loop.
TEST(EmptyPlanOvertakes, aTicksClaimThatSucceedsAfterItLeavesTheFanForcedAndUnwatched) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(134));
    bench.advance(2500ms - bench.system.elapsed());
    EXPECT_EQ(bench.writes.back(), "F0Md=1 (0x82)");
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(bench.state().isHolding);

    bench.advance(2s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_TRUE(bench.state().isHolding);
    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);

    // Another plan without fans is a full release, too.
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

/// The plan that waits for its fan finds, at the end, that nothing is managed any more: it gives
/// back what there is instead of holding, and publishes nothing of its own.
TEST(EmptyPlanOvertakes, aPlanThatStillClaimsAndThatReleasesOnceMoreWhenItTimesOut) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    bench.advance(8950ms);
    EXPECT_EQ(*plan, std::nullopt);
    forget(bench);
    bench.advance(60s);
    EXPECT_EQ(*plan, ControlResult::timedOut());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    EXPECT_THAT(bench.reads, IsEmpty());  // no loop holds anything
}

}  // namespace
}  // namespace airflow::control
