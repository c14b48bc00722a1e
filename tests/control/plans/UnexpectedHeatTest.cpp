// The ceiling where it is easily forgotten: whatever measures the heat, and whatever the fans do.
#include <gmock/gmock.h>

#include "HoldBench.h"

namespace airflow::control {
namespace {

TEST(UnexpectedHeat, thatTheSMCAloneMeasuresGivesTheFansBack) {
    ControllerBench bench{*simulation::machinePreset("no-hid"), withoutJitter};
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    const auto temperatures = bench.mac().smcTemperatures();
    ASSERT_FALSE(temperatures.empty());
    for (const auto& [key, celsius] : temperatures) bench.mac().setSMCTemperature(key, 99);
    bench.advance(5s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

TEST(UnexpectedHeat, givesFansBackThatThePlanHoldsStopped) {
    ControllerBench bench{steadyMachine(), withoutJitter};
    ASSERT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, percent(0)}}))),
              ControlResult::applied());
    bench.advance(11s);
    ASSERT_EQ(bench.state().stoppedFans, (std::vector<std::int64_t>{0}));
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(1700ms);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

/// The plan before it ended with the retry that gave its last fan back, not with a release.
TEST(UnexpectedHeat, endsAPlanThatComesAfterOneThatEndedByItself) {
    ControllerBench bench{steadyMachine(), withoutJitter};
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, {}, bench.system.elapsed() + 1s));
    (void)bench.run(bench.controller().applyPlan(planOf({})));
    bench.advance(6s);
    ASSERT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    ASSERT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
