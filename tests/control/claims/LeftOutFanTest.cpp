// Fans that a newer plan leaves out while an older one, or a release, is still at work on them.
#include <gmock/gmock.h>

#include "HoldBench.h"

namespace airflow::control {
namespace {

using testing::Contains;
using testing::Not;

class LeftOutFan : public testing::Test {
protected:
    /// A plan for fan 1 alone comes while the SMC has this read of fan 0's mode key in hand.
    void leaveOutAtRead(int count) {
        slowDown(bench, 5ms);
        const auto left = std::make_shared<int>(count);
        watch(bench, [this, left](const simulation::SMCAccess& access) {
            const bool isRead = access.operation == Fault::Operation::read && access.key == "F0Md";
            if (!isRead || --*left != 0) return;
            forget(bench);
            (void)bench.start(bench.controller().applyPlan(planOf({{1, rpm(3000)}})));
        });
    }
    void expectOnlyFanOneForced() {
        EXPECT_THAT(bench.writes, Contains("F1Md=1"));
        EXPECT_THAT(bench.writes, Not(Contains("F0Md=1")));
    }

    ControllerBench bench{steadyMachine(), withoutJitter};
};

TEST_F(LeftOutFan, isNotForcedByThePlanThatWasLookingForItsModeKey) {
    leaveOutAtRead(1);
    (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}})));
    bench.advance(5s);
    expectOnlyFanOneForced();
}

TEST_F(LeftOutFan, isNotForcedByTheTickThatWasLookingForItsModeKey) {
    auto absent = missing("F0Md");
    absent.until = bench.system.elapsed() + 1s;
    bench.mac().smc().add(absent);
    ASSERT_FALSE(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}}))).isApplied());
    bench.advance(1100ms);
    leaveOutAtRead(2);  // the snapshot reads it, too
    bench.advance(5s);
    expectOnlyFanOneForced();
}

TEST_F(LeftOutFan, isNotForcedWhenItIsGrantedAtLast) {
    bench.mac().smc().add(refusal("F0Md", 1, simulation::SimulatedMac::busy, {}, 5s));
    const auto older = bench.start(bench.controller().applyPlan(planOf({{0, rpm(3000)}})));
    bench.advance(1s);
    ASSERT_EQ(bench.run(bench.controller().applyPlan(planOf({{1, rpm(3000)}}))),
              ControlResult::applied());
    forget(bench);
    bench.advance(12s);
    EXPECT_TRUE(older->has_value());
    EXPECT_THAT(bench.writes, Not(Contains("F0Md=1")));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
}

/// It refuses the plan that drops it, and accepts the release that comes meanwhile: nothing is left
/// to try again.
TEST_F(LeftOutFan, isNotAskedAgainThatAReleaseHasGivenBackMeanwhile) {
    ASSERT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}}))),
              ControlResult::applied());
    slowDown(bench, 50ms);
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, {}, bench.system.elapsed() + 75ms));
    atWrite(bench, "F0Md", 0, 1, [this] { (void)bench.start(bench.controller().automatic()); });
    (void)bench.run(bench.controller().applyPlan(planOf({{1, rpm(3000)}})));
    bench.advance(1s);
    ASSERT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    forget(bench);
    bench.advance(10s);
    EXPECT_THAT(bench.writes, IsEmpty());
}

}  // namespace
}  // namespace airflow::control
