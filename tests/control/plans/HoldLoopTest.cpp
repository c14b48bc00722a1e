// The loop that holds a plan: its period, what it publishes, and when it ends.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

const Mode nothingYet = degreesAsPercent("SMC-TCMb");  // no such sensor: the firmware's

void apply(ControllerHarness& harness, const std::vector<std::pair<std::int64_t, Mode>>& fans) {
    (void)harness.run(harness.controller().applyPlan(planOf(fans)));
}

TEST(HoldLoop, wakesOneAndAHalfSecondsAfterEachTick) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    std::vector<std::chrono::milliseconds> snapshots;
    watch(harness, [&](const simulation::SMCAccess& access) {
        if (access.key == "FNum")
            snapshots.push_back(duration_cast<std::chrono::milliseconds>(access.time));
    });
    apply(harness, {{0, rpm(3000)}});
    harness.advance(6400ms);
    // Reading the temperatures takes 80 ms.
    EXPECT_THAT(snapshots, ElementsAre(0ms, 1500ms, 3080ms, 4660ms, 6240ms));
}

TEST(HoldLoop, assertsForcedModeAndTargetOnEveryTickAndTellsThatItHolds) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    forget(harness);
    harness.advance(3500ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000",  //
                                            "Ftst=1", "F0Md=1", "F0Tg=3000"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding", "holding"));
}

TEST(HoldLoop, clearsTheErrorOfACommandOnTheNextCalmTick) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}, {1, rpm(3000)}});
    harness.advance(2s);
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: applyPlan: "
                            "failed(\"neither F1Md nor F1md exists on this machine\")",
                            "holding"));
}

TEST(HoldLoop, tellsOfFansThatTheFirmwareTookBackAsNotHoldingForThatTick) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    apply(harness, {{0, rpm(3000)}, {1, rpm(4000)}});
    harness.mac().smc().add(misreading("F0Md", 3, 0s, 4s));
    harness.mac().smc().add(misreading("F1Md", 3, 0s, 2s));
    forget(harness);
    harness.advance(5s);
    EXPECT_THAT(told(harness.published),
                ElementsAre("not holding: reclaimed: fan(s) [0, 1] reverted to mode 3",
                            "not holding: reclaimed: fan(s) [0] reverted to mode 3", "holding"));
    EXPECT_EQ(std::ranges::count(harness.writes, "F0Md=1"), 3);  // asserted all the same
}

TEST(HoldLoop, forcesAFanAgainThatTheFirmwareTookBack) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.mac().setMode(0, FanMode::reclaimed);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(told(harness.published), ElementsAre("holding", "holding"));  // before it was read
}

/// Reports reverted fans in an order of its own.
class Disorderly final : public LocalFanController {
public:
    using LocalFanController::LocalFanController;
    concurrency::Task<std::vector<std::int64_t>> assertPlanOnce(plan::FanControlPlan plan,
                                                                sensors::SensorSnapshot snapshot,
                                                                concurrency::Date now) override {
        (void)co_await LocalFanController::assertPlanOnce(std::move(plan), std::move(snapshot),
                                                          now);
        ++steps;
        co_return std::vector<std::int64_t>{2, 0, 1};
    }

    int steps = 0;
};

TEST(HoldLoop, takesItsStepsThroughAnOverridingOneAndSortsWhatThatReports) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    const auto controller = install<Disorderly>(harness);
    apply(harness, {{0, rpm(3000)}});
    EXPECT_EQ(controller->steps, 1);
    harness.advance(2s);
    EXPECT_EQ(controller->steps, 2);
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding",  // what the plan's own step reports is not told
                            "not holding: reclaimed: fan(s) [0, 1, 2] reverted to mode 3"));
}

TEST(HoldLoop, goesOnWhileThePlanMonitorsFansThatItDoesNotHold) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, nothingYet}});
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    forget(harness);
    harness.advance(3500ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding", "not holding"));
}

TEST(HoldLoop, lowersForceTestOnceTheLastHeldFanIsReleasedAndWaitsForItsSensor) {
    auto machine = plainMachine(1);
    machine.hid->emplace_back("GPU", 50.0);
    ControllerHarness harness(machine);
    apply(harness, {{0, degreesAsPercent("HID-CPU")}});
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    harness.mac().setHID(simulation::Temperatures{{"GPU", 50.0}});
    forget(harness);
    harness.advance(2s);
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_THAT(harness.published.back().perFanMode, IsEmpty());
    EXPECT_THAT(harness.published.back().targets, IsEmpty());

    harness.mac().setHID(machine.hid);
    forget(harness);
    harness.advance(1500ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Md=1",
                                            testing::ContainsRegex("F0Tg=(3599|36)")));
    EXPECT_EQ(harness.published.back().perFanMode.at(0), ControlMode::curve);
}

TEST(HoldLoop, aRuleForcesAFanThatThePlanLeavesOnAutomatic) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    auto plan = planOf({{0, Mode::automatic()}, {1, rpm(4000)}});
    plan::FanRule rule;
    rule.thresholdCelsius = 60;
    rule.releaseBelowCelsius = 55;
    rule.targetPercent = 50;
    rule.fanTarget = plan::RuleFanTarget::fan(0);
    rule.enabled = true;
    plan.rules.push_back(rule);
    plan.tuning.emaAlpha = 1;
    (void)harness.run(harness.controller().applyPlan(plan));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);

    harness.mac().setHIDTemperature(steadyLabel, 80);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(harness.mac().fan(0).target, 3600);
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::automatic},
                                                    {1, ControlMode::manual}};
    EXPECT_EQ(harness.state().perFanMode, modes);  // as the plan has it

    harness.mac().setHIDTemperature(steadyLabel, 50);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_TRUE(harness.mac().forceTest());  // fan 1 is still held
}

TEST(HoldLoop, endsWithTheTickThatReleasesTheLastFanOfAPlanThatManagesNothing) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1s));
    apply(harness, {});
    forget(harness);
    harness.advance(1700ms);
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    harness.reads.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
}

TEST(HoldLoop, endsWithoutATickWhenTheLastFanWasGivenBackInBetween) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.mac().smc().add(refusal("F0Md", 0, 0x86, 0s, 1900ms));
    apply(harness, {});
    forget(harness);
    harness.advance(2200ms);  // the tick at 1.58 s tries in vain, the retry at 2.08 s does not
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0 (0x86)", "Ftst=1", "F0Md=0"));
    harness.reads.clear();
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
}

TEST(HoldLoop, startsAgainWithTheNextPlanAfterItHasEnded) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.advance(20s);
    EXPECT_EQ(harness.state().lastError, "no heartbeat for >15s — released to Auto");
    apply(harness, {{0, rpm(3500)}});
    forget(harness);
    harness.advance(2s);
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
    harness.advance(18s);  // and its watchdog is armed again
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST(HoldLoop, publishesStoppedFansAscendingAndHoldsThemAtZero) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    apply(harness, {{1, percent(0)}, {0, percent(0)}});
    harness.advance(9s);
    EXPECT_EQ(harness.state().stoppedFans, std::nullopt);
    EXPECT_EQ(harness.mac().fan(0).target, 1200);
    harness.advance(4s);
    EXPECT_EQ(harness.state().stoppedFans, (std::vector<std::int64_t>{0, 1}));
    EXPECT_EQ(harness.mac().fan(0).target, 0);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::forced);
}

TEST(HoldLoop, doesNotKeepTheControllerAlive) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.advance(1s);
    const std::weak_ptr<LocalFanController> controller = harness.system.controller;
    harness.system.controller.reset();
    EXPECT_TRUE(controller.expired());
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
}

TEST(HoldLoop, releasesAFanThatASnapshotMissesAndClaimsItAgainOnTheNextTick) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    apply(harness, {{0, rpm(3000)}});
    harness.mac().smc().add(
        Fault{.until = 2s, .key = "FNum", .operation = Fault::Operation::read, .result = 0x84});
    forget(harness);
    harness.advance(1600ms);
    EXPECT_THAT(harness.writes, ElementsAre("F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    forget(harness);
    harness.advance(1600ms);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=1", "F0Md=1", "F0Tg=3000"));
    EXPECT_THAT(told(harness.published), ElementsAre("holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);
}

}  // namespace
}  // namespace airflow::control
