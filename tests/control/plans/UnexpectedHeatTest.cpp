// The ceiling where it is easily forgotten: whatever measures the heat, and whatever the fans do.
#include <gmock/gmock.h>

#include "HoldHarness.h"

namespace airflow::control {
namespace {

TEST(UnexpectedHeat, thatTheSMCAloneMeasuresGivesTheFansBack) {
    ControllerHarness harness{*simulation::machinePreset("no-hid"), withoutJitter};
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    const auto temperatures = harness.mac().smcTemperatures();
    ASSERT_FALSE(temperatures.empty());
    for (const auto& [key, celsius] : temperatures) harness.mac().setSMCTemperature(key, 99);
    harness.advance(5s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

TEST(UnexpectedHeat, givesFansBackThatThePlanHoldsStopped) {
    ControllerHarness harness{steadyMachine(), withoutJitter};
    ASSERT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, percent(0)}}))),
              ControlResult::applied());
    harness.advance(11s);
    ASSERT_EQ(harness.state().stoppedFans, (std::vector<std::int64_t>{0}));
    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(1700ms);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

/// The plan before it ended with the retry that gave its last fan back, not with a release.
TEST(UnexpectedHeat, endsAPlanThatComesAfterOneThatEndedByItself) {
    ControllerHarness harness{steadyMachine(), withoutJitter};
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, {}, harness.system.elapsed() + 1s));
    (void)harness.run(harness.controller().applyPlan(planOf({})));
    harness.advance(6s);
    ASSERT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(3s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
