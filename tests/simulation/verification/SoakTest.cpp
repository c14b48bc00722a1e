#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>

#include "simulation/runtime/SimulatedRuntime.h"
#include "simulation/verification/Soak.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;
using testing::SizeIs;

/// Fifty commands, faults, hangs, temperatures and changes of the firmware.
Scenario crowded() {
    Scenario scenario{.machine = machinePreset("laptop").value()};
    for (int i = 0; i < 50; ++i) {
        scenario.events.emplace_back(Call{.at = i * 1s, .rpm = i});
        scenario.faults.push_back({.from = i * 1s, .until = (i + 1) * 1s});
        scenario.hidHangs.push_back({.from = i * 1s, .until = (i + 1) * 1s});
        scenario.temperatures.push_back({.at = i * 1s, .smc = {{"TCHP", 50.0 + i}}});
        scenario.firmware.push_back({.at = i * 1s, .key = "F0Md", .value = 3});
    }
    return scenario;
}

Verdict violating(Property property) {
    return {.violation = Violation{.property = property, .time = 41'500ms, .what = "seen"}};
}

TEST(Soak, shrinksAScenarioToWhatTheViolationNeeds) {
    const auto judge = [](const Scenario& scenario, std::uint64_t seed) -> Verdict {
        EXPECT_EQ(seed, 7U);
        const bool isCalled = std::ranges::any_of(
            scenario.events, [](const Event& event) { return std::get<Call>(event).rpm == 31; });
        const bool hangs = std::ranges::any_of(
            scenario.hidHangs, [](const HIDHang& hang) { return hang.from == 20s; });
        const bool isFaulty = std::ranges::any_of(
            scenario.faults, [](const Fault& fault) { return fault.from == 40s; });
        return isCalled && hangs && isFaulty ? violating(Property::stateIsTrue) : Verdict{};
    };
    const Scenario small = shrink(crowded(), 7, Property::stateIsTrue, judge);
    ASSERT_THAT(small.events, SizeIs(1));
    EXPECT_EQ(std::get<Call>(small.events[0]).rpm, 31);
    EXPECT_EQ(small.hidHangs, (std::vector<HIDHang>{{.from = 20s, .until = 21s}}));
    EXPECT_EQ(small.faults, (std::vector<Fault>{{.from = 40s, .until = 41s}}));
    EXPECT_THAT(small.temperatures, IsEmpty());
    EXPECT_THAT(small.firmware, IsEmpty());
    EXPECT_EQ(small.length(), 43s);
}

TEST(Soak, keepsWhatTurnsOneViolationIntoAnotherOrLeavesTheRunStuck) {
    const auto judge = [](const Scenario& scenario, std::uint64_t) -> Verdict {
        if (scenario.faults.empty()) throw Stuck("nothing goes on");
        const bool isSame = scenario.events.size() == 50 && scenario.firmware.size() == 50;
        return violating(isSame ? Property::stateIsTrue : Property::exitIsInTime);
    };
    const Scenario small = shrink(crowded(), 7, Property::stateIsTrue, judge);
    EXPECT_THAT(small.events, SizeIs(50));
    EXPECT_THAT(small.firmware, SizeIs(50));
    EXPECT_THAT(small.faults, SizeIs(1));
    EXPECT_THAT(small.hidHangs, IsEmpty());
}

TEST(Soak, judgesTheSameRunInTheSameWayEveryTime) {
    Scenario scenario{.machine = machinePreset("laptop").value()};
    scenario.events.emplace_back(Call{.at = 1s, .method = Call::Method::setManualRPM, .rpm = 3000});
    const Verdict verdict = judge(scenario, 3);
    EXPECT_FALSE(verdict.violation);
    EXPECT_NE(verdict.hash, 0U);
    EXPECT_EQ(judge(scenario, 3).hash, verdict.hash);
    std::get<Call>(scenario.events[0]).rpm = 3001;
    EXPECT_NE(judge(scenario, 3).hash, verdict.hash);
}

}  // namespace
}  // namespace airflow::simulation
