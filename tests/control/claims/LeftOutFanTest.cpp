// Fans that a newer plan leaves out while an older one, or a release, is still at work on them.
#include <gmock/gmock.h>

#include "HoldHarness.h"

namespace airflow::control {
namespace {

using testing::Contains;
using testing::Not;

class LeftOutFan : public testing::Test {
protected:
    /// A plan for fan 1 alone comes while the SMC has this read of fan 0's mode key in hand.
    void leaveOutAtRead(int count) {
        slowDown(harness, 5ms);
        const auto left = std::make_shared<int>(count);
        watch(harness, [this, left](const simulation::SMCAccess& access) {
            const bool isRead = access.operation == Fault::Operation::read && access.key == "F0Md";
            if (!isRead || --*left != 0) return;
            forget(harness);
            (void)harness.start(harness.controller().applyPlan(planOf({{1, rpm(3000)}})));
        });
    }
    void expectOnlyFanOneForced() {
        EXPECT_THAT(harness.writes, Contains("F1Md=1"));
        EXPECT_THAT(harness.writes, Not(Contains("F0Md=1")));
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

TEST_F(LeftOutFan, isNotForcedByThePlanThatWasLookingForItsModeKey) {
    leaveOutAtRead(1);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}})));
    harness.advance(5s);
    expectOnlyFanOneForced();
}

TEST_F(LeftOutFan, isNotForcedByTheTickThatWasLookingForItsModeKey) {
    auto absent = missing("F0Md");
    absent.until = harness.system.elapsed() + 1s;
    harness.mac().smc().add(absent);
    ASSERT_FALSE(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}}))).isApplied());
    harness.advance(1100ms);
    leaveOutAtRead(2);  // the snapshot reads it, too
    harness.advance(5s);
    expectOnlyFanOneForced();
}

TEST_F(LeftOutFan, isNotForcedWhenItIsGrantedAtLast) {
    harness.mac().smc().add(refusal("F0Md", 1, simulation::SimulatedMac::busy, {}, 5s));
    const auto older = harness.start(harness.controller().applyPlan(planOf({{0, rpm(3000)}})));
    harness.advance(1s);
    ASSERT_EQ(harness.run(harness.controller().applyPlan(planOf({{1, rpm(3000)}}))),
              ControlResult::applied());
    forget(harness);
    harness.advance(12s);
    EXPECT_TRUE(older->has_value());
    EXPECT_THAT(harness.writes, Not(Contains("F0Md=1")));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
}

/// It refuses the plan that drops it, and accepts the release that comes meanwhile: nothing is left
/// to try again.
TEST_F(LeftOutFan, isNotAskedAgainThatAReleaseHasGivenBackMeanwhile) {
    ASSERT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}}))),
              ControlResult::applied());
    slowDown(harness, 50ms);
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, {}, harness.system.elapsed() + 75ms));
    atWrite(harness, "F0Md", 0, 1,
            [this] { (void)harness.start(harness.controller().automatic()); });
    (void)harness.run(harness.controller().applyPlan(planOf({{1, rpm(3000)}})));
    harness.advance(1s);
    ASSERT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    forget(harness);
    harness.advance(10s);
    EXPECT_THAT(harness.writes, IsEmpty());
}

}  // namespace
}  // namespace airflow::control
