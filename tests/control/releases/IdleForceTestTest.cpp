// A release comes while a control step waits for its temperatures: the step lowers force-test once
// more when it finds nothing to hold, and leaves it alone when a fan has still to go back.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

/// A snapshot takes 80 ms; the first tick begins at 1.58 s.
class IdleForceTest : public testing::Test {
protected:
    void advanceTo(concurrency::Duration time) { harness.advance(time - harness.system.elapsed()); }
    /// In the middle of the first tick's snapshot.
    void holdAndAutomatic() {
        (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
        advanceTo(1540ms);
        forget(harness);
        (void)harness.run(harness.controller().automatic());
    }

    ControllerHarness harness{steadyMachine(1), withoutJitter};
};

TEST_F(IdleForceTest, isLoweredOnceMoreWhenTheSnapshotOfATickIsOver) {
    holdAndAutomatic();
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    forget(harness);
    advanceTo(10s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0"));
}

TEST_F(IdleForceTest, isLoweredOnceMoreWhenTheSnapshotOfAPlanIsOver) {
    const auto plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    advanceTo(40ms);
    ASSERT_EQ(*plan, std::nullopt);
    forget(harness);
    (void)harness.run(harness.controller().automatic());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    forget(harness);
    advanceTo(10s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0"));
}

TEST_F(IdleForceTest, isNotLoweredByATickWhileAFanHasStillToGoBack) {
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 3s));
    holdAndAutomatic();
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)"));
    forget(harness);
    advanceTo(3s);
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
}

TEST_F(IdleForceTest, isNotLoweredByTheSnapshotOfAPlanWhileAFanHasStillToGoBack) {
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1500ms));
    const auto plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    advanceTo(40ms);
    ASSERT_EQ(*plan, std::nullopt);
    forget(harness);
    (void)harness.run(harness.controller().automatic());
    advanceTo(1s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0 (0x86)"));
}

/// The SMC is busy, so the plan has no fan yet.
TEST_F(IdleForceTest, isNotLoweredUnderAPlanThatCameAfterTheRelease) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 1540ms, 3s));
    holdAndAutomatic();
    const auto plan = harness.start(harness.controller().setManual(0_fan, 4000_rpm));
    forget(harness);
    advanceTo(2s);
    ASSERT_EQ(*plan, std::nullopt);
    EXPECT_THAT(harness.writes, testing::Contains("Ftst=1"));
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("Ftst=0")));
}

/// Nothing is held any more, and two fans have still to be asked that only the start has found.
TEST(IdleForceTestOfManyFans, isNotLoweredByATickInTheMiddleOfTheRelease) {
    ControllerHarness harness(steadyMachine(3), withoutJitter);
    (void)harness.run(harness.controller().restoreAllFansToAutomatic());
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add({.key = "F1Md", .value = 0, .latency = 200ms});
    harness.advance(1540ms - harness.system.elapsed());
    forget(harness);
    const auto released = harness.start(harness.controller().automatic());
    harness.advance(8s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "F2Md=0", "Ftst=0"));
}

}  // namespace
}  // namespace airflow::control
