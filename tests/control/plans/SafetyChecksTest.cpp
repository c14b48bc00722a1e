// The three checks that give every fan back: heat, missing temperatures, a lost heartbeat.
#include "HoldBench.h"

namespace airflow::control {
namespace {

const std::string noHeartbeat = "not holding: no heartbeat for >15s — released to Auto";
const std::string noTemperatures = "not holding: temperature data unavailable — released to Auto";
const std::string firstMissing = "holding: temperature data unavailable (1/2)";

class SafetyChecks : public testing::Test {
protected:
    void hold() { (void)bench.run(bench.controller().setManual(0, 3000)); }
    void loseTemperatures() { bench.mac().setHID(std::nullopt); }
    void findTemperatures() { bench.mac().setHID(simulation::Temperatures{{"CPU", 50.0}}); }
    /// Up to the next tick's end.
    void tick() { bench.advance(1600ms); }
    bool isForced() { return bench.mac().fan(0).mode == FanMode::forced; }
    ControllerBench bench{plainMachine(1)};
};

struct Heat {
    double celsius;
    bool isReleased;
    const char* message;
};

class ThermalCeiling : public testing::TestWithParam<Heat> {};

TEST_P(ThermalCeiling, releasesAt95DegreesAndTellsThemWithoutFraction) {
    ControllerBench bench(machineAt(50.0), withoutJitter);
    (void)bench.run(bench.controller().fullBlast());
    bench.mac().setHIDTemperature(steadyLabel, GetParam().celsius);
    forget(bench);
    bench.advance(1600ms);
    const FanMode expected = GetParam().isReleased ? FanMode::automatic : FanMode::forced;
    EXPECT_EQ(bench.mac().fan(0).mode, expected);
    EXPECT_EQ(bench.mac().fan(1).mode, expected);
    EXPECT_EQ(told(bench.published).back(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    AroundIt, ThermalCeiling,
    testing::Values(
        Heat{94.99, false, "holding"},
        Heat{95.0, true, "not holding: thermal ceiling 95°C exceeded — released to Auto"},
        Heat{97.99, true, "not holding: thermal ceiling 97°C exceeded — released to Auto"},
        Heat{150.0, true, "not holding: thermal ceiling 150°C exceeded — released to Auto"}));

TEST_F(SafetyChecks, theHottestOfSeveralTemperaturesCounts) {
    auto machine = steadyMachine(1);
    machine.hid =
        simulation::Temperatures{{"NAND CH0 temp", 60.0}, {steadyLabel, 96.5}, {"SSD temp", 40.0}};
    ControllerBench hot(machine, withoutJitter);
    (void)hot.run(hot.controller().setManual(0, 3000));
    EXPECT_EQ(hot.mac().fan(0).mode, FanMode::forced);  // only the loop checks
    hot.advance(1600ms);
    EXPECT_EQ(hot.state().lastError, "thermal ceiling 96°C exceeded — released to Auto");
}

TEST_F(SafetyChecks, aReleaseForHeatClearsThePlanAndEndsTheLoop) {
    const auto controller = install<PlanKeeper>(bench);
    hold();
    bench.mac().setHIDTemperature("CPU", 96.5);
    forget(bench);
    tick();
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published),
                ElementsAre("not holding",
                            "not holding: thermal ceiling 96°C exceeded — released to Auto"));
    forget(bench);
    bench.advance(60s);
    EXPECT_THAT(bench.reads, IsEmpty());
    (void)bench.run(controller->setManual(1, 2000));
    EXPECT_EQ(controller->plans.back(), planOf({{1, rpm(2000)}}));
}

TEST(SafetyRelease, forgetsWhatTheEvaluatorRemembered) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    (void)bench.run(bench.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(bench.mac().fan(0).target, 3600);
    bench.mac().setHIDTemperature(steadyLabel, 96);
    bench.advance(1600ms);
    bench.mac().setHIDTemperature(steadyLabel, 10);
    (void)bench.run(bench.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(bench.mac().fan(0).target, 1680);
}

TEST_F(SafetyChecks, theFirstSnapshotWithoutTemperaturesIsToleratedTheSecondIsNot) {
    hold();
    loseTemperatures();
    forget(bench);
    tick();
    EXPECT_THAT(told(bench.published), ElementsAre(firstMissing));
    EXPECT_THAT(bench.writes, IsEmpty());  // no control step on this tick
    EXPECT_TRUE(isForced());
    tick();
    EXPECT_THAT(told(bench.published), ElementsAre(firstMissing, "not holding", noTemperatures));
    EXPECT_FALSE(isForced());
    forget(bench);
    bench.advance(60s);
    EXPECT_THAT(bench.reads, IsEmpty());
}

TEST_F(SafetyChecks, temperaturesThatComeAndGoNeverRelease) {
    hold();
    forget(bench);
    loseTemperatures();
    tick();
    findTemperatures();
    tick();
    loseTemperatures();
    tick();
    findTemperatures();
    tick();
    EXPECT_THAT(told(bench.published),
                ElementsAre(firstMissing, "holding", firstMissing, "holding"));
    EXPECT_TRUE(isForced());
}

TEST_F(SafetyChecks, aNewPlanDoesNotForgetThatTemperaturesWereMissing) {
    hold();
    loseTemperatures();
    tick();
    hold();
    forget(bench);
    tick();
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", noTemperatures));

    hold();  // not even after the release that followed: the first tick of its loop releases
    EXPECT_TRUE(isForced());
    forget(bench);
    tick();
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", noTemperatures));
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aTickWithoutTemperaturesDoesNotLookAtTheHeartbeat) {
    hold();
    bench.system.runtime.jumpDate(concurrency::Seconds(100));
    loseTemperatures();
    forget(bench);
    tick();
    EXPECT_THAT(told(bench.published), ElementsAre(firstMissing));
    tick();
    EXPECT_EQ(told(bench.published).back(), noTemperatures);  // it comes first
}

TEST_F(SafetyChecks, heatComesBeforeALostHeartbeat) {
    hold();
    bench.system.runtime.jumpDate(concurrency::Seconds(100));
    bench.mac().setHIDTemperature("CPU", 99.5);
    tick();
    EXPECT_EQ(bench.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

TEST_F(SafetyChecks, aLostHeartbeatComesBeforeTheControlStep) {
    hold();
    bench.system.runtime.jumpDate(concurrency::Seconds(100));
    forget(bench);
    tick();
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", noHeartbeat));
}

class HeartbeatLimit : public testing::TestWithParam<std::pair<double, bool>> {};

/// A machine whose temperatures come from the SMC is at its checks as soon as the last one is read.
TEST_P(HeartbeatLimit, isExceededStrictlyAbove15Seconds) {
    auto machine = plainMachine(1);
    machine.hid.reset();
    machine.smc = {{"TCMb", 50.0}};
    ControllerBench bench(machine, withoutJitter);
    const auto [seconds, isReleased] = GetParam();
    const concurrency::Date start = std::chrono::sys_days(std::chrono::January / 2 / 2026);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.system.runtime.setDate(start);
    bench.run(bench.controller().heartbeat());
    auto readings = std::make_shared<int>(0);
    watch(bench, [&, readings](const simulation::SMCAccess& access) {
        if (access.key != "TCMb" || ++*readings != 2) return;
        bench.system.runtime.setDate(start + concurrency::Seconds(seconds));
    });
    forget(bench);
    bench.advance(1600ms);
    EXPECT_EQ(*readings, 2);
    EXPECT_EQ(told(bench.published).back(), isReleased ? noHeartbeat : "holding");
    EXPECT_EQ(bench.mac().fan(0).mode, isReleased ? FanMode::automatic : FanMode::forced);
}

INSTANTIATE_TEST_SUITE_P(AroundIt, HeartbeatLimit,
                         testing::Values(std::pair(0.0, false), std::pair(14.999, false),
                                         std::pair(15.0, false), std::pair(15.001, true),
                                         std::pair(-1000.0, false)));

TEST_F(SafetyChecks, aHeartbeatInTimeKeepsTheHold) {
    hold();
    for (int beat = 0; beat < 10; ++beat) {
        bench.advance(13s);
        bench.run(bench.controller().heartbeat());
    }
    EXPECT_TRUE(isForced());
    bench.advance(15s);
    EXPECT_TRUE(isForced());
    bench.advance(2s);
    EXPECT_EQ(told(bench.published).back(), noHeartbeat);
}

TEST_F(SafetyChecks, aWallClockThatJumpsAheadReleasesOnTheNextTick) {
    hold();
    bench.system.runtime.jumpDate(concurrency::Seconds(3600));
    tick();
    EXPECT_EQ(told(bench.published).back(), noHeartbeat);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aWallClockThatJumpsBackPutsTheReleaseOff) {
    hold();
    bench.system.runtime.jumpDate(concurrency::Seconds(-60));
    bench.advance(74s);
    EXPECT_TRUE(isForced());  // nobody was heard for 74 s, as no clock but the monotonic one knows
    bench.advance(3s);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aHeartbeatInTheDistantPastIsNone) {
    bench.system.runtime.setDate(concurrency::distantPast);
    hold();
    bench.system.runtime.setDate(std::chrono::sys_days(std::chrono::January / 2 / 2026));
    bench.advance(60s);
    EXPECT_TRUE(isForced());
    bench.run(bench.controller().heartbeat());
    bench.advance(17s);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aReleaseThatFailsIsToldInsteadOfItsReasonAndTriedAgain) {
    hold();
    bench.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 3s));
    bench.mac().setHIDTemperature("CPU", 99.5);
    forget(bench);
    tick();
    const std::string text = "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(bench.published), ElementsAre(text, text));
    bench.advance(5s);
    EXPECT_FALSE(isForced());
    EXPECT_FALSE(bench.state().isHolding);
}

TEST_F(SafetyChecks, aReleaseThatFailsToLowerForceTestHoldsNothing) {
    hold();
    bench.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 3s));
    bench.mac().setHIDTemperature("CPU", 99.5);
    forget(bench);
    tick();
    const std::string text = "not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(bench.published), ElementsAre(text, text));
    EXPECT_FALSE(isForced());
}

/// What holds then is the plan's to tell.
TEST(SafetyRelease, duringWhichAPlanComesDoesNotTellOfItself) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    (void)bench.run(bench.controller().setManual(0, 3000));
    slowDown(bench, 5ms);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    forget(bench);
    std::shared_ptr<std::optional<ControlResult>> plan;
    atWrite(bench, "F0Md", 0, 1,
            [&] { plan = bench.start(bench.controller().setManual(0, 4000)); });
    bench.advance(1800ms);
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(told(bench.published), ElementsAre("holding"));
    bench.advance(2s);
    EXPECT_EQ(told(bench.published).back(),
              "not holding: thermal ceiling 99°C exceeded — released to Auto");
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
