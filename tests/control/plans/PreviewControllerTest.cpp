#include <gmock/gmock.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "control/PreviewController.h"
#include "control/StandardOutput.h"
#include "simulation/daemon/SimulatedSystem.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "support/Doubles.h"
#include "support/Plans.h"
#include "support/UnitLiterals.h"

namespace airflow::control {
namespace {

using tests::notANumber;
using tests::planOf;
using namespace std::chrono_literals;
using namespace tests::literals;
using plan::FanControlModePlan;
using testing::ElementsAre;
using testing::IsEmpty;

class Preview : public testing::Test {
protected:
    explicit Preview(concurrency::Duration delay = 400ms) : controller(runtime, output, delay) {
        runtime.detach("states", collect(*this));
    }
    ~Preview() override { runtime.abandon(); }

    template <typename T>
    T run(concurrency::Task<T> task) {
        return runtime.run(std::move(task));
    }
    static concurrency::Task<void> collect(Preview& preview) {
        for (;;) {
            auto state = co_await preview.controller.stateStream().next();
            if (!state) co_return;
            preview.published.push_back(std::move(*state));
        }
    }
    static concurrency::Task<void> discard(concurrency::Task<ControlResult> task) {
        (void)co_await std::move(task);
    }

    simulation::SimulatedRuntime runtime;
    simulation::RecordedLines output;
    PreviewController controller;
    std::vector<ControlState> published;
};

plan::FanCurve emptyCurve() {
    return {.sourceSensorID = {}, .points = {}};
}

TEST_F(Preview, startsIdleAndAutomatic) {
    EXPECT_EQ(controller.currentState(), ControlState::idle());
    EXPECT_EQ(controller.mode(), ControlMode::automatic);
    EXPECT_THAT(controller.log(), IsEmpty());
    runtime.settle();
    EXPECT_THAT(published, IsEmpty());
    EXPECT_EQ(PreviewController::defaultAcquireDelay, 400ms);
}

TEST_F(Preview, holdsAFanAtASpeedAfterItsDelay) {
    runtime.detach("command", discard(controller.setManual(0_fan, 1800_rpm)));
    runtime.advance(399ms);
    EXPECT_THAT(published, ElementsAre(ControlState::idle()));
    EXPECT_EQ(controller.mode(), ControlMode::automatic);
    runtime.advance(1ms);
    const ControlState held{.perFanMode = {{0, ControlMode::manual}},
                            .targets = {{0, 1800}},
                            .isHolding = true,
                            .lastError = std::nullopt,
                            .stoppedFans = std::nullopt};
    EXPECT_THAT(published, ElementsAre(ControlState::idle(), held));
    EXPECT_EQ(controller.currentState(), held);
    EXPECT_EQ(controller.mode(), ControlMode::manual);
    EXPECT_THAT(controller.log(), ElementsAre("setManual(fan: 0, rpm: 1800)"));
    EXPECT_THAT(output.lines, ElementsAre("[PreviewController] setManual(fan: 0, rpm: 1800)\n"));
}

TEST_F(Preview, holdsAFanAtAPercentageAndLeavesItsTarget) {
    EXPECT_EQ(run(controller.setManual(1_fan, 1800_rpm)), ControlResult::applied());
    EXPECT_EQ(run(controller.setPercent(1_fan, 55_percent)), ControlResult::applied());
    EXPECT_EQ(run(controller.setPercent(2_fan, 40_percent)), ControlResult::applied());
    EXPECT_EQ(controller.mode(), ControlMode::manual);
    EXPECT_EQ(controller.currentState(),
              (ControlState{.perFanMode = {{1, ControlMode::manual}, {2, ControlMode::manual}},
                            .targets = {{1, 1800}},
                            .isHolding = true,
                            .lastError = std::nullopt,
                            .stoppedFans = std::nullopt}));
}

TEST_F(Preview, showsFullBlastAsItsOverallModeOnly) {
    (void)run(controller.setManual(0_fan, 1800_rpm));
    published.clear();
    EXPECT_EQ(run(controller.fullBlast()), ControlResult::applied());
    EXPECT_EQ(controller.mode(), ControlMode::fullBlast);
    const ControlState acquiring{.perFanMode = {{0, ControlMode::manual}},
                                 .targets = {{0, 1800}},
                                 .isHolding = false,
                                 .lastError = std::nullopt,
                                 .stoppedFans = std::nullopt};
    ControlState held = acquiring;
    held.isHolding = true;
    EXPECT_THAT(published, ElementsAre(acquiring, held));
    EXPECT_EQ(runtime.now().time_since_epoch(), 800ms);
}

struct PlannedMode {
    FanControlModePlan planned;
    ControlMode shown;
    bool isHolding;
};

class PreviewPlan : public Preview, public testing::WithParamInterface<PlannedMode> {};

TEST_P(PreviewPlan, showsTheModeOfEveryFan) {
    const auto plan = planOf({{.fanID = 5, .mode = GetParam().planned}});
    EXPECT_EQ(run(controller.applyPlan(plan)), ControlResult::applied());
    EXPECT_EQ(controller.currentState(), (ControlState{.perFanMode = {{5, GetParam().shown}},
                                                       .targets = {},
                                                       .isHolding = GetParam().isHolding,
                                                       .lastError = std::nullopt,
                                                       .stoppedFans = std::nullopt}));
    EXPECT_EQ(controller.mode(), ControlMode::automatic);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PreviewPlan,
    testing::Values(
        PlannedMode{FanControlModePlan::fixedRPM(0), ControlMode::manual, true},
        PlannedMode{FanControlModePlan::fixedRPM(2000), ControlMode::manual, true},
        PlannedMode{FanControlModePlan::fixedPercent(99.99), ControlMode::manual, true},
        PlannedMode{FanControlModePlan::fixedPercent(100), ControlMode::fullBlast, true},
        PlannedMode{FanControlModePlan::fixedPercent(100.01), ControlMode::fullBlast, true},
        PlannedMode{FanControlModePlan::fixedPercent(notANumber), ControlMode::manual, true},
        PlannedMode{FanControlModePlan::curve(emptyCurve()), ControlMode::manual, true},
        PlannedMode{FanControlModePlan::automatic(), ControlMode::automatic, false}));

TEST_F(Preview, takesTheLastEntryOfAFanAndHoldsForAnyEntryThatIsNotAutomatic) {
    const auto plan = planOf({{.fanID = 0, .mode = FanControlModePlan::fixedPercent(100)},
                              {.fanID = 1, .mode = FanControlModePlan::curve(emptyCurve())},
                              {.fanID = 0, .mode = FanControlModePlan::automatic()}});
    (void)run(controller.applyPlan(plan));
    EXPECT_EQ(controller.currentState().perFanMode,
              (std::map<std::int64_t, ControlMode>{{0, ControlMode::automatic},
                                                   {1, ControlMode::manual}}));
    EXPECT_TRUE(controller.currentState().isHolding);
}

TEST_F(Preview, keepsFansThatAPlanDoesNotName) {
    (void)run(controller.setManual(0_fan, 1800_rpm));
    (void)run(
        controller.applyPlan(planOf({{.fanID = 1, .mode = FanControlModePlan::automatic()}})));
    EXPECT_EQ(controller.currentState(),
              (ControlState{.perFanMode = {{0, ControlMode::manual}, {1, ControlMode::automatic}},
                            .targets = {{0, 1800}},
                            .isHolding = false,
                            .lastError = std::nullopt,
                            .stoppedFans = std::nullopt}));
    EXPECT_EQ(controller.mode(), ControlMode::manual);
}

TEST_F(Preview, ofAnEmptyPlanHoldsNothing) {
    (void)run(controller.applyPlan(plan::FanControlPlan::allAutomatic()));
    EXPECT_FALSE(controller.currentState().isHolding);
}

TEST_F(Preview, isIdleAtOnceAfterAutomatic) {
    (void)run(controller.fullBlast());
    published.clear();
    const auto before = runtime.now();
    EXPECT_EQ(run(controller.automatic()), ControlResult::applied());
    EXPECT_EQ(runtime.now(), before);
    EXPECT_THAT(published, ElementsAre(ControlState::idle()));
    EXPECT_EQ(controller.mode(), ControlMode::automatic);
}

TEST_F(Preview, isIdleAtOnceAfterRestoreAuto) {
    (void)run(controller.setManual(0_fan, 1800_rpm));
    published.clear();
    const auto before = runtime.now();
    EXPECT_EQ(run(controller.restoreAuto()), std::nullopt);
    EXPECT_EQ(runtime.now(), before);
    EXPECT_THAT(published, ElementsAre(ControlState::idle()));
    EXPECT_EQ(controller.currentState(), ControlState::idle());
    EXPECT_EQ(controller.mode(), ControlMode::automatic);
}

TEST_F(Preview, publishesEvenWhatIsEqualToTheLast) {
    (void)run(controller.automatic());
    (void)run(controller.automatic());
    EXPECT_THAT(published, ElementsAre(ControlState::idle(), ControlState::idle()));
}

TEST_F(Preview, recordsAHeartbeatAndDoesNothingElse) {
    run(controller.heartbeat());
    EXPECT_THAT(controller.log(), ElementsAre("heartbeat()"));
    EXPECT_THAT(output.lines, ElementsAre("[PreviewController] heartbeat()\n"));
    EXPECT_THAT(published, IsEmpty());
}

TEST_F(Preview, recordsEveryCommandByteForByteInOrder) {
    auto plan = planOf({{.fanID = 0, .mode = FanControlModePlan::fixedRPM(2000)},
                        {.fanID = 1, .mode = FanControlModePlan::automatic()},
                        {.fanID = 1, .mode = FanControlModePlan::curve(emptyCurve())}});
    plan.rules.resize(4);
    (void)run(controller.setManual(numbers::FanIndex(-1), numbers::WholeRPM(-2500)));
    (void)run(controller.setManual(numbers::FanIndex(std::numeric_limits<std::int64_t>::min()),
                                   numbers::WholeRPM(std::numeric_limits<std::int64_t>::max())));
    (void)run(controller.setPercent(12_fan, 55_percent));
    (void)run(controller.fullBlast());
    (void)run(controller.applyPlan(plan));
    (void)run(controller.applyPlan(plan::FanControlPlan::allAutomatic()));
    (void)run(controller.automatic());
    (void)run(controller.restoreAuto());
    run(controller.heartbeat());
    const std::vector<std::string> texts{
        "setManual(fan: -1, rpm: -2500)",
        "setManual(fan: -9223372036854775808, rpm: 9223372036854775807)",
        "setPercent(fan: 12, percent: 55.0)",
        "fullBlast()",
        "applyPlan(fans: 3, controlled: 2, rules: 4)",
        "applyPlan(fans: 0, controlled: 0, rules: 0)",
        "automatic()",
        "restoreAuto()",
        "heartbeat()"};
    EXPECT_EQ(controller.log(), texts);
    ASSERT_EQ(output.lines.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(output.lines[i], "[PreviewController] " + texts[i] + "\n");
    }
}

TEST_F(Preview, writesPercentagesInTheirShortestForm) {
    using Limits = std::numeric_limits<double>;
    const std::vector<std::pair<double, std::string>> percentages{
        {0, "0.0"},
        {-0.0, "-0.0"},
        {55, "55.0"},
        {100, "100.0"},
        {-20, "-20.0"},
        {33.3, "33.3"},
        {0.1, "0.1"},
        {99.999, "99.999"},
        {0.1 + 0.2, "0.30000000000000004"},
        {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},
        {0.0001, "0.0001"},
        {0.00001, "1e-05"},
        {Limits::infinity(), "inf"},
        {-Limits::infinity(), "-inf"},
        {Limits::quiet_NaN(), "nan"}};
    for (const auto& [percent, text] : percentages) {
        (void)run(controller.setPercent(0_fan, numbers::Percent(percent)));
        EXPECT_EQ(controller.log().back(), "setPercent(fan: 0, percent: " + text + ")");
    }
}

TEST_F(Preview, letsOtherCommandsRunWhileItPretendsToAcquire) {
    runtime.detach("first", discard(controller.setManual(0_fan, 1800_rpm)));
    runtime.advance(200ms);
    runtime.detach("second", discard(controller.setManual(1_fan, 2400_rpm)));
    runtime.advance(100ms);
    EXPECT_THAT(controller.log(),
                ElementsAre("setManual(fan: 0, rpm: 1800)", "setManual(fan: 1, rpm: 2400)"));
    runtime.advance(300ms);
    EXPECT_EQ(controller.currentState().targets,
              (std::map<std::int64_t, std::int64_t>{{0, 1800}, {1, 2400}}));
}

TEST(PreviewOutput, isTheStandardOutput) {
    simulation::SimulatedRuntime runtime;
    StandardOutput output;
    PreviewController controller(runtime, output);
    testing::internal::CaptureStdout();
    runtime.run(controller.heartbeat());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[PreviewController] heartbeat()\n");
    runtime.abandon();
}

class PreviewWithoutDelay : public Preview {
protected:
    PreviewWithoutDelay() : Preview(0ms) {}
};

TEST_F(PreviewWithoutDelay, holdsAtOnce) {
    EXPECT_EQ(run(controller.setManual(0_fan, 1800_rpm)), ControlResult::applied());
    EXPECT_EQ(runtime.now().time_since_epoch(), 0ms);
    EXPECT_EQ(published.size(), 2U);
}

}  // namespace
}  // namespace airflow::control
