// Builders: plans, snapshots and a clock of which a test names only what matters.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "evaluation/PlanEvaluator.h"
#include "support/Plans.h"

namespace airflow::evaluation {

using Decisions = std::map<std::int64_t, FanDecision>;
using Mode = plan::FanControlModePlan;
using tests::curve;
using tests::degreesAsPercent;

inline std::ostream& operator<<(std::ostream& out, const FanDecision& decision) {
    if (const auto* target = std::get_if<Target>(&decision)) return out << target->rpm << " RPM";
    return out << (std::holds_alternative<IdleStopped>(decision) ? "stopped" : "released");
}

inline const FanDecision released = ReleaseToAuto{};
inline const FanDecision stopped = IdleStopped{};
inline FanDecision rpm(double speed) {
    return Target{speed};
}

/// A moment, given in seconds after the test's start.
inline concurrency::Date at(double seconds) {
    return concurrency::Date(concurrency::Seconds(1'700'000'000)) + concurrency::Seconds(seconds);
}

inline sensors::Fan fan(std::int64_t id, std::int64_t min = 1000, std::int64_t max = 5000) {
    return {.id = id, .name = "", .currentRPM = 0, .minRPM = min, .maxRPM = max, .mode = {}};
}

/// The sensor that plans know as "SMC-" and its key.
inline sensors::TempSensor sensor(const std::string& key, double celsius) {
    return {.key = key, .name = "", .celsius = celsius, .source = sensors::SensorSource::smc};
}

struct RuleTraits {
    std::uint8_t id = 1;
    std::optional<std::string> sensor = {};  ///< absent: the hottest
    double above = 80;
    double releaseBelow = 70;
    double percent = 50;
    std::optional<std::int64_t> fan = {};  ///< absent: all
    double dwell = 0;
    bool enabled = true;
};

inline plan::UUID ruleID(std::uint8_t id) {
    return {.bytes = {id}};
}

inline plan::FanRule rule(const RuleTraits& traits) {
    return {.id = ruleID(traits.id),
            .name = "",
            .sensorID = traits.sensor,
            .thresholdCelsius = traits.above,
            .releaseBelowCelsius = traits.releaseBelow,
            .targetPercent = traits.percent,
            .fanTarget = {.fanID = traits.fan},
            .dwellSeconds = traits.dwell,
            .enabled = traits.enabled};
}

/// One evaluator and what it is given. The machine has fan 0, which turns at 1000 to 5000 RPM (so
/// 1 % is 40 RPM), and no sensors; readings are taken as they are unless a test smooths them.
class EvaluatorTest : public testing::Test {
protected:
    plan::FanControlPlan plan{
        .fans = {}, .rules = {}, .tuning = {.emaAlpha = 1, .maxDeltaRPMPerTick = 400}};
    sensors::SensorSnapshot snapshot{.fans = {fan(0)}, .temps = {}};
    PlanEvaluator evaluator;

    /// Plans fan 0 alone.
    void ask(Mode mode) { plan.fans = {{.fanID = 0, .mode = std::move(mode)}}; }
    void ask(std::int64_t fanID, Mode mode) { plan.fans.push_back({fanID, std::move(mode)}); }

    /// From now on sensor "SMC-A", the only one, reads this.
    void read(double celsius) { snapshot.temps = {sensor("A", celsius)}; }
    void readNothing() { snapshot.temps = {}; }

    Decisions tick(double seconds) { return evaluator.evaluate(plan, snapshot, at(seconds)); }

    /// What is decided for fan 0 at a time; nothing if nothing is.
    std::optional<FanDecision> decisionAt(double seconds) {
        const Decisions decisions = tick(seconds);
        const auto found = decisions.find(0);
        if (found == decisions.end()) return std::nullopt;
        return found->second;
    }
};

}  // namespace airflow::evaluation
