// A replay of what a simulated daemon saw does what that daemon did, tick by tick.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "simulation/runtime/Random.h"
#include "simulation/scenario/ScenarioRun.h"
#include "tool/replay/Replay.h"

namespace airflow::tool {
namespace {

using concurrency::Duration;
using simulation::Random;
using namespace std::chrono_literals;

/// Every look of the daemon at its sensors, and what it had published before the next one.
class Looks final : public simulation::ScenarioObserver {
public:
    struct Look {
        sensors::SensorSnapshot snapshot;
        control::ControlState state;
        std::vector<ReplayTick::Fan> fans;
    };

    explicit Looks(std::size_t count) : fans(count) {}

    void access(const simulation::SMCAccess& access) override {
        if (access.operation != simulation::Fault::Operation::write || access.key[0] != 'F') return;
        for (std::size_t fan = 0; fan < fans.size(); ++fan) {
            if (access.key == fmt::format("F{}Md", fan)) fans[fan].isForced = access.value == 1;
            if (access.key == fmt::format("F{}Tg", fan)) fans[fan].targetRPM = access.value;
        }
        keepLast();
    }
    void published(Duration, const control::ControlState& next) override {
        state = next;
        keepLast();
    }
    void looked(Duration, const sensors::SensorSnapshot& snapshot) override {
        looks.push_back({.snapshot = snapshot, .state = state, .fans = fans});
    }

    std::vector<Look> looks;

private:
    void keepLast() {
        if (looks.empty()) return;
        looks.back().state = state;
        looks.back().fans = fans;
    }

    control::ControlState state;
    std::vector<ReplayTick::Fan> fans;
};

constexpr const char* firstSensor = "PMU tdie1";
constexpr const char* otherSensor = "PMU tdie2";

double celsius(Random& random) {
    return 35 + static_cast<double>(random.below(700)) / 10;
}

plan::FanControlModePlan randomMode(Random& random) {
    switch (random.below(4)) {
        case 0: return plan::FanControlModePlan::automatic();
        case 1: return plan::FanControlModePlan::fixedRPM(static_cast<double>(random.below(8000)));
        case 2:
            return plan::FanControlModePlan::fixedPercent(static_cast<double>(random.below(3)) *
                                                          40);
        default: break;
    }
    plan::FanCurve curve;
    if (random.chance(50)) curve.sourceSensorID = std::string("HID-") + otherSensor;
    const auto points = random.below(4);
    for (std::int64_t i = 0; i < points; ++i) {
        curve.points.push_back({.id = {},
                                .celsius = celsius(random),
                                .percent = static_cast<double>(random.below(120))});
    }
    return plan::FanControlModePlan::curve(curve);
}

plan::FanControlPlan randomPlan(Random& random, std::size_t fans) {
    plan::FanControlPlan plan;
    for (std::size_t fan = 0; fan < fans; ++fan) {
        if (random.below(5) == 0) continue;
        plan.fans.push_back({.fanID = static_cast<std::int64_t>(fan), .mode = randomMode(random)});
    }
    const auto rules = random.below(3);
    for (std::int64_t i = 0; i < rules; ++i) {
        plan::FanRule rule;
        rule.thresholdCelsius = celsius(random);
        rule.releaseBelowCelsius = celsius(random);
        rule.targetPercent = static_cast<double>(random.below(101));
        rule.dwellSeconds = static_cast<double>(random.below(8));
        rule.enabled = random.chance(75);
        rule.id.bytes[0] = static_cast<std::uint8_t>(i);
        if (random.chance(50)) rule.fanTarget.fanID = random.below(2);
        if (random.chance(50)) rule.sensorID = std::string("HID-") + firstSensor;
        plan.rules.push_back(rule);
    }
    plan.tuning.emaAlpha = 0.2 + static_cast<double>(random.below(9)) / 10;
    plan.tuning.maxDeltaRPMPerTick = static_cast<double>(random.below(10)) * 100;
    return plan;
}

/// A machine with temperatures that are set, some hotter than the ceiling, or that are missing for
/// a while; one client applies one plan and is heard until the end.
simulation::Scenario randomScenario(Random& random) {
    simulation::Scenario scenario;
    scenario.machine = *simulation::machinePreset("laptop");
    scenario.machine.hid = simulation::Temperatures{{firstSensor, 45.0}, {otherSensor, 40.0}};
    scenario.machine.smc = {};
    for (auto& fan : scenario.machine.fans) fan.maxRPM += static_cast<double>(random.below(2000));
    simulation::Call apply{.at = 1s, .method = simulation::Call::Method::applyConfig};
    apply.plan = randomPlan(random, scenario.machine.fans.size());
    scenario.events.emplace_back(apply);
    scenario.events.emplace_back(simulation::Heartbeats{.at = 1500ms, .every = 2s, .until = 40s});
    for (auto at = Duration(2s); at < Duration(40s);) {
        simulation::TemperatureChange change{.at = at};
        const bool hasVanished = random.chance(15);
        change.hid = {{random.chance(50) ? firstSensor : otherSensor,
                       hasVanished ? std::nullopt : std::optional(celsius(random))}};
        scenario.temperatures.push_back(change);
        at += std::chrono::milliseconds(300 + random.below(6000));
    }
    return scenario;
}

TEST(ReplayAgreement, aReplayDoesWhatTheDaemonDidOnAThousandRandomPlansAndTraces) {
    std::size_t ticks = 0;
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        SCOPED_TRACE(fmt::format("seed {}", seed));
        Random random(seed);
        const auto scenario = randomScenario(random);
        Looks observed(scenario.machine.fans.size());
        simulation::ScenarioRun(scenario, observed, 0).play(40s);
        ticks += observed.looks.size();  // none under a plan that manages no fan
        Replay replay(std::get<simulation::Call>(scenario.events.front()).plan);
        for (std::size_t i = 0; i < observed.looks.size(); ++i) {
            const auto& [snapshot, state, fans] = observed.looks[i];
            const auto tick = replay.step(snapshot);
            ASSERT_EQ(tick.state, state) << "tick " << i;
            for (std::size_t fan = 0; fan < fans.size(); ++fan) {
                const auto& replayed = tick.fans.at(static_cast<std::int64_t>(fan));
                ASSERT_EQ(replayed.isForced, fans[fan].isForced) << "tick " << i << ", fan " << fan;
                if (!replayed.isForced) continue;
                ASSERT_EQ(static_cast<float>(replayed.targetRPM), fans[fan].targetRPM)
                    << "tick " << i << ", fan " << fan;
            }
        }
    }
    EXPECT_GT(ticks, 10'000U);
}

}  // namespace
}  // namespace airflow::tool
