// The three checks that give every fan back: heat, missing temperatures, a lost heartbeat.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

const std::string noHeartbeat = "not holding: no heartbeat for >15s — released to Auto";
const std::string noTemperatures = "not holding: temperature data unavailable — released to Auto";
const std::string firstMissing = "holding: temperature data unavailable (1/2)";

class SafetyChecks : public testing::Test {
protected:
    void hold() { (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm)); }
    void loseTemperatures() { harness.mac().setHID(std::nullopt); }
    void findTemperatures() { harness.mac().setHID(simulation::Temperatures{{"CPU", 50.0}}); }
    /// Up to the next tick's end.
    void tick() { harness.advance(1600ms); }
    bool isForced() { return harness.mac().fan(0).mode == FanMode::forced; }
    ControllerHarness harness{plainMachine(1)};
};

struct Heat {
    double celsius;
    bool isReleased;
    const char* message;
};

class ThermalCeiling : public testing::TestWithParam<Heat> {};

TEST_P(ThermalCeiling, releasesAt95DegreesAndTellsThemWithoutFraction) {
    ControllerHarness harness(machineAt(50.0), withoutJitter);
    (void)harness.run(harness.controller().fullBlast());
    harness.mac().setHIDTemperature(steadyLabel, GetParam().celsius);
    forget(harness);
    harness.advance(1600ms);
    const FanMode expected = GetParam().isReleased ? FanMode::automatic : FanMode::forced;
    EXPECT_EQ(harness.mac().fan(0).mode, expected);
    EXPECT_EQ(harness.mac().fan(1).mode, expected);
    EXPECT_EQ(told(harness.published).back(), GetParam().message);
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
    ControllerHarness hot(machine, withoutJitter);
    (void)hot.run(hot.controller().setManual(0_fan, 3000_rpm));
    EXPECT_EQ(hot.mac().fan(0).mode, FanMode::forced);  // only the loop checks
    hot.advance(1600ms);
    EXPECT_EQ(hot.state().lastError, "thermal ceiling 96°C exceeded — released to Auto");
}

TEST_F(SafetyChecks, aReleaseForHeatClearsThePlanAndEndsTheLoop) {
    const auto controller = install<PlanKeeper>(harness);
    hold();
    harness.mac().setHIDTemperature("CPU", 96.5);
    forget(harness);
    tick();
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding",
                            "not holding: thermal ceiling 96°C exceeded — released to Auto"));
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
    (void)harness.run(controller->setManual(1_fan, 2000_rpm));
    EXPECT_EQ(controller->plans.back(), planOf({{1, rpm(2000)}}));
}

TEST(SafetyRelease, forgetsWhatTheEvaluatorRemembered) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(harness.mac().fan(0).target, 3600);
    harness.mac().setHIDTemperature(steadyLabel, 96);
    harness.advance(1600ms);
    harness.mac().setHIDTemperature(steadyLabel, 10);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(harness.mac().fan(0).target, 1680);
}

TEST_F(SafetyChecks, theFirstSnapshotWithoutTemperaturesIsToleratedTheSecondIsNot) {
    hold();
    loseTemperatures();
    forget(harness);
    tick();
    EXPECT_THAT(told(harness.published), ElementsAre(firstMissing));
    EXPECT_THAT(harness.writes, IsEmpty());  // no control step on this tick
    EXPECT_TRUE(isForced());
    tick();
    EXPECT_THAT(told(harness.published), ElementsAre(firstMissing, "not holding", noTemperatures));
    EXPECT_FALSE(isForced());
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
}

TEST_F(SafetyChecks, temperaturesThatComeAndGoNeverRelease) {
    hold();
    forget(harness);
    loseTemperatures();
    tick();
    findTemperatures();
    tick();
    loseTemperatures();
    tick();
    findTemperatures();
    tick();
    EXPECT_THAT(told(harness.published),
                ElementsAre(firstMissing, "holding", firstMissing, "holding"));
    EXPECT_TRUE(isForced());
}

TEST_F(SafetyChecks, aNewPlanDoesNotForgetThatTemperaturesWereMissing) {
    hold();
    loseTemperatures();
    tick();
    hold();
    forget(harness);
    tick();
    EXPECT_THAT(told(harness.published), ElementsAre("not holding", noTemperatures));

    hold();  // not even after the release that followed: the first tick of its loop releases
    EXPECT_TRUE(isForced());
    forget(harness);
    tick();
    EXPECT_THAT(told(harness.published), ElementsAre("not holding", noTemperatures));
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aTickWithoutTemperaturesDoesNotLookAtTheHeartbeat) {
    hold();
    harness.system.runtime.jumpDate(concurrency::Seconds(100));
    loseTemperatures();
    forget(harness);
    tick();
    EXPECT_THAT(told(harness.published), ElementsAre(firstMissing));
    tick();
    EXPECT_EQ(told(harness.published).back(), noTemperatures);  // it comes first
}

TEST_F(SafetyChecks, heatComesBeforeALostHeartbeat) {
    hold();
    harness.system.runtime.jumpDate(concurrency::Seconds(100));
    harness.mac().setHIDTemperature("CPU", 99.5);
    tick();
    EXPECT_EQ(harness.state().lastError, "thermal ceiling 99°C exceeded — released to Auto");
}

TEST_F(SafetyChecks, aLostHeartbeatComesBeforeTheControlStep) {
    hold();
    harness.system.runtime.jumpDate(concurrency::Seconds(100));
    forget(harness);
    tick();
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding", noHeartbeat));
}

class HeartbeatLimit : public testing::TestWithParam<std::pair<double, bool>> {};

/// A machine whose temperatures come from the SMC is at its checks as soon as the last one is read.
TEST_P(HeartbeatLimit, isExceededStrictlyAbove15Seconds) {
    auto machine = plainMachine(1);
    machine.hid.reset();
    machine.smc = {{"TCMb", 50.0}};
    ControllerHarness harness(machine, withoutJitter);
    const auto [seconds, isReleased] = GetParam();
    const concurrency::Date start = std::chrono::sys_days(std::chrono::January / 2 / 2026);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.system.runtime.setDate(start);
    harness.run(harness.controller().heartbeat());
    auto readings = std::make_shared<int>(0);
    watch(harness, [&, readings](const simulation::SMCAccess& access) {
        if (access.key != "TCMb" || ++*readings != 2) return;
        harness.system.runtime.setDate(start + concurrency::Seconds(seconds));
    });
    forget(harness);
    harness.advance(1600ms);
    EXPECT_EQ(*readings, 2);
    EXPECT_EQ(told(harness.published).back(), isReleased ? noHeartbeat : "holding");
    EXPECT_EQ(harness.mac().fan(0).mode, isReleased ? FanMode::automatic : FanMode::forced);
}

INSTANTIATE_TEST_SUITE_P(AroundIt, HeartbeatLimit,
                         testing::Values(std::pair(0.0, false), std::pair(14.999, false),
                                         std::pair(15.0, false), std::pair(15.001, true),
                                         std::pair(-1000.0, false)));

TEST_F(SafetyChecks, aHeartbeatInTimeKeepsTheHold) {
    hold();
    for (int beat = 0; beat < 10; ++beat) {
        harness.advance(13s);
        harness.run(harness.controller().heartbeat());
    }
    EXPECT_TRUE(isForced());
    harness.advance(15s);
    EXPECT_TRUE(isForced());
    harness.advance(2s);
    EXPECT_EQ(told(harness.published).back(), noHeartbeat);
}

TEST_F(SafetyChecks, aWallClockThatJumpsAheadReleasesOnTheNextTick) {
    hold();
    harness.system.runtime.jumpDate(concurrency::Seconds(3600));
    tick();
    EXPECT_EQ(told(harness.published).back(), noHeartbeat);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aWallClockThatJumpsBackDelaysTheRelease) {
    hold();
    harness.system.runtime.jumpDate(concurrency::Seconds(-60));
    harness.advance(74s);
    EXPECT_TRUE(isForced());  // nobody was heard for 74 s, as no clock but the monotonic one knows
    harness.advance(3s);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aHeartbeatInTheDistantPastIsNone) {
    harness.system.runtime.setDate(concurrency::distantPast);
    hold();
    harness.system.runtime.setDate(std::chrono::sys_days(std::chrono::January / 2 / 2026));
    harness.advance(60s);
    EXPECT_TRUE(isForced());
    harness.run(harness.controller().heartbeat());
    harness.advance(17s);
    EXPECT_FALSE(isForced());
}

TEST_F(SafetyChecks, aReleaseThatFailsIsPublishedInsteadOfItsReasonAndTriedAgain) {
    hold();
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 3s));
    harness.mac().setHIDTemperature("CPU", 99.5);
    forget(harness);
    tick();
    const std::string text = "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(harness.published), ElementsAre(text, text));
    harness.advance(5s);
    EXPECT_FALSE(isForced());
    EXPECT_FALSE(harness.state().isHolding);
}

TEST_F(SafetyChecks, aReleaseThatFailsToLowerForceTestHoldsNothing) {
    hold();
    harness.mac().smc().add(refusal("Ftst", 0, 0x86, 0s, 3s));
    harness.mac().setHIDTemperature("CPU", 99.5);
    forget(harness);
    tick();
    const std::string text = "not holding: failed to restore Auto: Ftst=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(harness.published), ElementsAre(text, text));
    EXPECT_FALSE(isForced());
}

/// What holds then is the plan's to tell.
TEST(SafetyRelease, duringWhichAPlanComesDoesNotTellOfItself) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    slowDown(harness, 5ms);
    harness.mac().setHIDTemperature(steadyLabel, 99);
    forget(harness);
    std::shared_ptr<std::optional<ControlResult>> plan;
    atWrite(harness, "F0Md", 0, 1,
            [&] { plan = harness.start(harness.controller().setManual(0_fan, 4000_rpm)); });
    harness.advance(1800ms);
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
    harness.advance(2s);
    EXPECT_EQ(told(harness.published).back(),
              "not holding: thermal ceiling 99°C exceeded — released to Auto");
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
