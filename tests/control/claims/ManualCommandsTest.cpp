// The commands for single fans and for all, which are edits of the active plan.
#include <cmath>
#include <limits>

#include "HoldHarness.h"
#include "support/Doubles.h"

namespace airflow::control {
namespace {

using tests::notANumber;

/// Two entries for fan 1 around one for fan 0, a rule and a tuning of its own.
plan::FanControlPlan crowdedPlan() {
    auto plan = planOf({{1, percent(20)}, {0, rpm(3000)}, {1, Mode::automatic()}});
    plan::FanRule rule;
    rule.thresholdCelsius = 90;
    rule.targetPercent = 80;
    plan.rules.push_back(rule);
    plan.tuning.maxDeltaRPMPerTick = 123;
    return plan;
}

TEST(ManualCommands, setManualReplacesEveryEntryOfItsFanByOneAtTheEnd) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    EXPECT_EQ(harness.run(controller->applyPlan(crowdedPlan())), ControlResult::applied());

    EXPECT_EQ(harness.run(controller->setManual(1_fan, 2000_rpm)), ControlResult::applied());
    auto expected = crowdedPlan();
    expected.fans = {{.fanID = 0, .mode = rpm(3000.0)}, {.fanID = 1, .mode = rpm(2000.0)}};
    EXPECT_EQ(controller->plans.back(), expected);
    EXPECT_EQ(harness.mac().fan(1).target, 2000);
}

TEST(ManualCommands, setPercentReplacesEveryEntryOfItsFanByOneAtTheEnd) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    EXPECT_EQ(harness.run(controller->applyPlan(crowdedPlan())), ControlResult::applied());

    EXPECT_EQ(harness.run(controller->setPercent(1_fan, 25_percent)), ControlResult::applied());
    auto expected = crowdedPlan();
    expected.fans = {{.fanID = 0, .mode = rpm(3000.0)}, {.fanID = 1, .mode = percent(25.0)}};
    EXPECT_EQ(controller->plans.back(), expected);
    EXPECT_EQ(harness.mac().fan(1).target, 2400);
}

TEST(ManualCommands, withoutAPlanTheFirstCommandIsTheWholePlan) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    (void)harness.run(controller->setManual(1_fan, 2000_rpm));
    EXPECT_EQ(controller->plans.back(), planOf({{1, rpm(2000.0)}}));
}

TEST(ManualCommands, aSpeedIsPassedOnUncheckedAndClampedToTheFansLimitsWhenHeld) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    for (const std::int64_t speed : {std::int64_t{-5}, std::int64_t{0}, std::int64_t{9000},
                                     std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_EQ(harness.run(controller->setManual(0_fan, numbers::WholeRPM(speed))),
                  ControlResult::applied());
        EXPECT_EQ(controller->plans.back(), planOf({{0, rpm(static_cast<double>(speed))}}));
        EXPECT_EQ(harness.mac().fan(0).target, speed > 0 ? 6000 : 1200);
    }
}

TEST(ManualCommands, aPercentageIsPassedOnAsItIs) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    for (const double share : {12.5, -3.0, 250.0}) {
        EXPECT_EQ(harness.run(controller->setPercent(0_fan, numbers::Percent(share))),
                  ControlResult::applied());
        EXPECT_EQ(controller->plans.back(), planOf({{0, percent(share)}}));
    }
    EXPECT_EQ(harness.run(controller->setPercent(0_fan, numbers::Percent(notANumber))),
              ControlResult::applied());
    const auto& mode = controller->plans.back().fans.front().mode.mode;
    EXPECT_TRUE(std::isnan(std::get<plan::FixedPercent>(mode).percent));
}

TEST(ManualCommands, everyCommandGoesThroughAnApplyPlanThatInterceptsIt) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    controller->answer = ControlResult::rejected(7);
    EXPECT_EQ(harness.run(controller->setManual(0_fan, 2000_rpm)), ControlResult::rejected(7));
    EXPECT_EQ(harness.run(controller->setPercent(1_fan, 50_percent)), ControlResult::rejected(7));
    EXPECT_EQ(harness.run(controller->fullBlast()), ControlResult::rejected(7));
    EXPECT_EQ(controller->plans, (std::vector{planOf({{0, rpm(2000)}}), planOf({{1, percent(50)}}),
                                              planOf({{0, percent(100)}, {1, percent(100)}})}));
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST(ManualCommands, fullBlastHoldsEveryFanAtItsMaximumAndKeepsRulesAndTuning) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    EXPECT_EQ(harness.run(controller->applyPlan(crowdedPlan())), ControlResult::applied());

    EXPECT_EQ(harness.run(controller->fullBlast()), ControlResult::applied());
    auto expected = crowdedPlan();
    expected.fans = {{.fanID = 0, .mode = percent(100.0)}, {.fanID = 1, .mode = percent(100.0)}};
    EXPECT_EQ(controller->plans.back(), expected);
    EXPECT_EQ(harness.mac().fan(0).target, 6000);
    EXPECT_EQ(harness.mac().fan(1).target, 6000);
}

TEST(ManualCommands, fullBlastIsPublishedAsSuch) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().fullBlast());
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::fullBlast},
                                                    {1, ControlMode::fullBlast}};
    EXPECT_EQ(harness.state().perFanMode, modes);
}

TEST(ManualCommands, fullBlastOnAMachineWithoutFansIsAnEmptyPlan) {
    ControllerHarness harness(steadyMachine(0), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    EXPECT_EQ(harness.run(controller->fullBlast()), ControlResult::applied());
    EXPECT_EQ(controller->plans.back(), plan::FanControlPlan::allAutomatic());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=1", "Ftst=0"));
}

TEST(ManualCommands, fullBlastWithoutAReadableCountOfFansFailsAndChangesNothing) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    (void)harness.run(controller->setManual(0_fan, 3000_rpm));
    forget(harness);

    auto unreadable = missing("FNum");
    unreadable.until = harness.system.elapsed() + 10ms;
    harness.mac().smc().add(unreadable);
    EXPECT_EQ(harness.run(controller->fullBlast()), ControlResult::failed("could not read FNum"));
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
    EXPECT_EQ(controller->plans.size(), 1u);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::forced);

    harness.advance(10ms);
    (void)harness.run(controller->setManual(1_fan, 4000_rpm));
    EXPECT_EQ(controller->plans.back(), planOf({{0, rpm(3000)}, {1, rpm(4000)}}));
}

TEST(ManualCommands, aCountOfFansThatIsNoNumberIsUnreadable) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    harness.mac().smc().add(Fault{
        .key = "FNum", .operation = Fault::Operation::information, .size = 1, .type = "ch8*"});
    EXPECT_EQ(harness.run(harness.controller().fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_THAT(harness.reads, ElementsAre("FNum"));
}

struct Published {
    const char* name;
    Mode mode;
    ControlMode expected;
};

class PublishedMode : public testing::TestWithParam<Published> {};

TEST_P(PublishedMode, followsFromThePlansModeWhenAFanIsClaimed) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, GetParam().mode}})));
    const std::map<std::int64_t, ControlMode> expected{{0, GetParam().expected}};
    EXPECT_EQ(harness.state().perFanMode, expected);
}

INSTANTIATE_TEST_SUITE_P(
    OfEveryMode, PublishedMode,
    testing::Values(Published{"fixedRPM", rpm(6000), ControlMode::manual},
                    Published{"percentBelow100", percent(99.999), ControlMode::manual},
                    Published{"percent100", percent(100), ControlMode::fullBlast},
                    Published{"percentAbove100", percent(100.001), ControlMode::fullBlast},
                    Published{"percentNotANumber", percent(notANumber), ControlMode::manual},
                    Published{"curve", degreesAsPercent(), ControlMode::curve}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ManualCommands, aFanThatIsHeldAlreadyIsPublishedInItsNewMode) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    (void)harness.run(harness.controller().fullBlast());
    const std::map<std::int64_t, ControlMode> modes{{0, ControlMode::fullBlast},
                                                    {1, ControlMode::fullBlast}};
    EXPECT_EQ(harness.state().perFanMode, modes);
    EXPECT_EQ(harness.mac().fan(0).target, 6000);
    (void)harness.run(harness.controller().setManual(0_fan, 2000_rpm));
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::manual);
    EXPECT_EQ(harness.state().perFanMode.at(1), ControlMode::fullBlast);
}

/// Fan 1 keeps the plan busy, so that the loop is the first to publish.
TEST(ManualCommands, aFanThatIsHeldAlreadyIsPublishedInItsNewModeWhileAnotherIsStillClaimed) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(refusal("F1Md", 1, 0x82));
    forget(harness);
    (void)harness.start(harness.controller().fullBlast());
    harness.advance(1s);
    harness.mac().setHIDTemperature(steadyLabel, 1000);  // not plausible: a tick without its step
    harness.advance(1s);
    ASSERT_EQ(harness.published.size(), 1U);
    EXPECT_EQ(harness.published.back().perFanMode.at(0), ControlMode::fullBlast);
    EXPECT_FALSE(harness.published.back().perFanMode.contains(1));
}

TEST(Automatic, givesEveryFanBackAndClearsThePlan) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    (void)harness.run(controller->fullBlast());
    forget(harness);
    EXPECT_EQ(harness.run(controller->automatic()), ControlResult::applied());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "F0Md=0", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);

    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.writes, IsEmpty());  // the hold loop has ended
    (void)harness.run(controller->setManual(1_fan, 2000_rpm));
    EXPECT_EQ(controller->plans.back(), planOf({{1, rpm(2000)}}));
}

TEST(Automatic, forgetsWhatTheEvaluatorRemembered) {
    ControllerHarness harness(machineAt(10, 1), withoutJitter);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(harness.mac().fan(0).target, 1680);
    (void)harness.run(harness.controller().automatic());
    harness.mac().setHIDTemperature(steadyLabel, 90);
    (void)harness.run(harness.controller().applyPlan(planOf({{0, degreesAsPercent()}})));
    EXPECT_EQ(harness.mac().fan(0).target, 5520);  // neither smoothed nor held back
}

TEST(Automatic, tellsWhyAFanCouldNotBeGivenBack) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().fullBlast());
    harness.mac().smc().add(refusal("F0Md", 0));
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().automatic()),
              ControlResult::failed("failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)"));
}

TEST(Automatic, isRefusedToAProcessThatIsNotRootWithoutAskingTheSMC) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    forget(harness);
    harness.system.effectiveUserID = 501;
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::notPrivileged());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
    harness.advance(3s);
    EXPECT_TRUE(harness.state().isHolding);  // the hold loop goes on
}

TEST(Heartbeat, touchesNeitherTheSMCNorTheState) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    harness.run(harness.controller().heartbeat());
    EXPECT_THAT(harness.writes, IsEmpty());
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST(ManualCommands, fullBlastKeepsTheRulesOfAPlanThatArrivesWhileItCountsTheFans) {
    ControllerHarness harness(steadyMachine(), withoutJitter);
    const auto controller = install<PlanKeeper>(harness);
    slowDown(harness, 5ms);
    atRequest(harness, 1, [&] { (void)harness.start(controller->applyPlan(crowdedPlan())); });
    (void)harness.run(controller->fullBlast());
    auto expected = crowdedPlan();
    expected.fans = {{.fanID = 0, .mode = percent(100.0)}, {.fanID = 1, .mode = percent(100.0)}};
    EXPECT_THAT(controller->plans, ElementsAre(crowdedPlan(), expected));
}

}  // namespace
}  // namespace airflow::control
