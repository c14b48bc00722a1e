#include <optional>
#include <string>
#include <vector>

#include "AccessLog.h"
#include "support/Plans.h"

namespace airflow::control {
namespace {

using plan::FanControlModePlan;
using tests::planOf;

plan::FanCurve flatCurve(double percent) {
    return {.sourceSensorID = {}, .points = {{.id = {}, .celsius = 0, .percent = percent}}};
}

TEST(PublishedState, isIdleBeforeAnyCommandAndNothingHasBeenPublished) {
    ControllerHarness harness;
    EXPECT_EQ(harness.state(), ControlState::idle());
    EXPECT_TRUE(harness.published.empty());
}

TEST(PublishedState, namesTheModeAndTargetOfEveryHeldFan) {
    ControllerHarness harness(plainMachine(4));
    const auto plan = planOf({{.fanID = 3, .mode = FanControlModePlan::curve(flatCurve(50))},
                              {.fanID = 0, .mode = FanControlModePlan::fixedRPM(2500)},
                              {.fanID = 1, .mode = FanControlModePlan::fixedPercent(100)},
                              {.fanID = 2, .mode = FanControlModePlan::automatic()}});
    ASSERT_EQ(harness.run(harness.controller().applyPlan(plan)), ControlResult::applied());
    EXPECT_EQ(harness.state(), (ControlState{.perFanMode = {{0, ControlMode::manual},
                                                            {1, ControlMode::fullBlast},
                                                            {3, ControlMode::curve}},
                                             .targets = {{0, 2500}, {1, 6000}, {3, 3600}},
                                             .isHolding = true,
                                             .lastError = std::nullopt,
                                             .stoppedFans = std::nullopt}));
}

TEST(PublishedState, carriesAnErrorUntilTheNextPublicationWithoutOne) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x86, 500ms);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    EXPECT_EQ(harness.state().lastError, "applyPlan: rejected(code: 134)");
    harness.run(harness.controller().heartbeat());
    EXPECT_EQ(harness.state().lastError, "applyPlan: rejected(code: 134)");
    harness.advance(1500ms);
    EXPECT_EQ(harness.state().lastError, std::nullopt);
}

TEST(PublishedState, listsStoppedFansAscendingAndNoListWithoutAny) {
    ControllerHarness harness;
    const auto plan = planOf({{.fanID = 1, .mode = FanControlModePlan::fixedPercent(0)},
                              {.fanID = 0, .mode = FanControlModePlan::fixedPercent(0)}});
    ASSERT_EQ(harness.run(harness.controller().applyPlan(plan)), ControlResult::applied());
    harness.advance(9s);
    EXPECT_EQ(harness.state().stoppedFans, std::nullopt);
    harness.advance(2s);
    EXPECT_EQ(harness.state().stoppedFans, (std::vector<std::int64_t>{0, 1}));
    EXPECT_EQ(harness.state().targets, (std::map<std::int64_t, std::int64_t>{{0, 0}, {1, 0}}));
    EXPECT_EQ(harness.mac().fan(0).target, 0);
    EXPECT_EQ(harness.mac().fan(1).target, 0);
}

/// A release forgets modes and targets. Which fans are stopped is the control step's to tell.
TEST(PublishedState, goesOnListingStoppedFansAfterAReleaseUntilTheNextControlStep) {
    ControllerHarness harness;
    const auto plan = planOf({{.fanID = 0, .mode = FanControlModePlan::fixedPercent(0)}});
    ASSERT_EQ(harness.run(harness.controller().applyPlan(plan)), ControlResult::applied());
    harness.advance(11s);
    ASSERT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    const ControlState released{.perFanMode = {},
                                .targets = {},
                                .isHolding = false,
                                .lastError = std::nullopt,
                                .stoppedFans = std::vector<std::int64_t>{0}};
    EXPECT_EQ(harness.published.back(), released);
    EXPECT_EQ(harness.mac().fan(0).mode, simulation::FanMode::automatic);
    harness.advance(3600s);
    EXPECT_EQ(harness.state(), released);

    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(harness.state().stoppedFans, std::nullopt);
}

struct RoundedTarget {
    double rpm;
    std::int64_t published;
};

class TargetRounding : public testing::TestWithParam<RoundedTarget> {};

TEST_P(TargetRounding, isToTheNearestWithHalvesAwayFromZero) {
    auto machine = plainMachine(1);
    machine.fans[0].minRPM = -10;
    ControllerHarness harness(machine);
    const auto plan = planOf({{.fanID = 0, .mode = FanControlModePlan::fixedRPM(GetParam().rpm)}});
    ASSERT_EQ(harness.run(harness.controller().applyPlan(plan)), ControlResult::applied());
    EXPECT_EQ(harness.state().targets.at(0), GetParam().published);
}

INSTANTIATE_TEST_SUITE_P(Table, TargetRounding,
                         testing::Values(RoundedTarget{1499.5, 1500}, RoundedTarget{1499.49, 1499},
                                         RoundedTarget{1500.5, 1501}, RoundedTarget{2400, 2400},
                                         RoundedTarget{0.5, 1}, RoundedTarget{0.49, 0},
                                         RoundedTarget{-0.5, -1}, RoundedTarget{-0.49, 0},
                                         RoundedTarget{-1.5, -2}, RoundedTarget{-10, -10}));

TEST(PublishedState, keepsATargetAtTheEndOfTheRange) {
    auto machine = plainMachine(1);
    machine.fans[0].minRPM = -0x1p63;
    ControllerHarness harness(machine);
    const auto plan = planOf({{.fanID = 0, .mode = FanControlModePlan::fixedRPM(-1e300)}});
    ASSERT_EQ(harness.run(harness.controller().applyPlan(plan)), ControlResult::applied());
    EXPECT_EQ(harness.state().targets.at(0), std::numeric_limits<std::int64_t>::min());
}

TEST(PublishedState, yieldsEveryPublicationEvenOneEqualToTheLast) {
    ControllerHarness harness;
    ASSERT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    ASSERT_EQ(harness.published.size(), 1U);
    harness.advance(7s);  // four ticks, each a little longer than 1.5 s for the sensors
    const ControlState held{.perFanMode = {{0, ControlMode::manual}},
                            .targets = {{0, 3000}},
                            .isHolding = true,
                            .lastError = std::nullopt,
                            .stoppedFans = std::nullopt};
    EXPECT_THAT(harness.published, testing::ElementsAre(held, held, held, held, held));
}

TEST(PublishedState, namesTheReasonOfASafetyReleaseUntilAClientSendsTheFansToAuto) {
    ControllerHarness harness;
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.run(harness.controller().releaseForSafety(CeilingExceeded{97.0}));
    EXPECT_EQ(harness.state().lastError, "thermal ceiling 97°C exceeded — released to Auto");
    harness.advance(60s);
    EXPECT_EQ(harness.state().lastError, "thermal ceiling 97°C exceeded — released to Auto");
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(harness.state(), ControlState::idle());
}

TEST(PublishedState, waitsForAReaderThatComesLate) {
    simulation::SimulatedSystem system(plainMachine());
    auto& controller = *system.controller;
    (void)system.runtime.run(controller.setManual(0_fan, 3000_rpm));
    system.runtime.advance(4s);
    (void)system.runtime.run(controller.restoreAuto());
    auto& stream = controller.stateStream();
    std::vector<bool> holding;
    for (int i = 0; i < 4; ++i) holding.push_back(system.runtime.run(stream.next())->isHolding);
    EXPECT_THAT(holding, testing::ElementsAre(true, true, true, false));
}

TEST(PublishedState, isNotDroppedHoweverSlowlyItIsRead) {
    simulation::SimulatedSystem system(plainMachine());
    auto& controller = *system.controller;
    constexpr int commands = 2000;
    for (int i = 0; i < commands; ++i) {
        (void)system.runtime.run(controller.setManual(0_fan, numbers::WholeRPM(1200 + i)));
    }
    auto& stream = controller.stateStream();
    std::int64_t read = 1200;
    while (read < 1200 + commands - 1) {
        const auto state = system.runtime.run(stream.next());
        // The hold loop publishes a target again now and then; none is left out.
        ASSERT_THAT(state->targets.at(0), testing::AnyOf(read, read + 1));
        read = state->targets.at(0);
    }
}

TEST(PublishedState, canBeReadWhileACommandWaitsForTheMachine) {
    ControllerHarness harness;
    refuse(harness, "F0Md", 1, 0x82);
    const auto result = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(5s);
    EXPECT_EQ(harness.state(), ControlState::idle());
    EXPECT_FALSE(result->has_value());
}

}  // namespace
}  // namespace airflow::control
