// PlanEvaluator: from a plan and a snapshot to a decision for each planned fan. Does no input or
// output and reads no clock.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "concurrency/Date.h"
#include "evaluation/EvaluationRecord.h"
#include "evaluation/FanDecision.h"
#include "numbers/Units.h"
#include "plan/FanControlPlan.h"
#include "sensors/SensorSnapshot.h"

namespace airflow::evaluation {

/// A plain value: copies evaluate on independently. What it remembers of rules and fans that left
/// the plan stays until reset().
struct PlanEvaluator {
    using Date = concurrency::Date;

    std::map<std::string, double, std::less<>> emaBySensor;  ///< smoothed °C by sensor id
    std::map<std::int64_t, double> lastTargetByFan;          ///< RPM; absent while stopped
    std::map<plan::UUID, Date> ruleFiringSince;  ///< rose above the threshold; kept while latched
    std::set<plan::UUID> ruleLatched;            ///< rules that override now
    std::map<std::int64_t, Date> zeroSince;      ///< when the request first was <= 0 %
    std::map<std::int64_t, Date> resumeSince;    ///< when a stopped fan's request was high enough
    std::set<std::int64_t> stoppedFans;

    bool operator==(const PlanEvaluator&) const = default;

    /// One decision for each planned fan that the snapshot has. `now` is the wall clock's. How they
    /// came about goes into `record`, if there is one.
    [[nodiscard]] std::map<std::int64_t, FanDecision> evaluate(
        const plan::FanControlPlan& plan, const sensors::SensorSnapshot& snapshot, Date now,
        EvaluationRecord* record = nullptr);

    /// Forgets everything, so that the next plan starts afresh.
    void reset() { *this = {}; }

    /// The largest smoothed temperature, °C; nothing without sensors. A temperature that is not a
    /// number counts only when there is no other: one broken sensor must not hide a hot one.
    [[nodiscard]] std::optional<double> hottest() const;

    /// The zero-speed policy: idleStopped while the fan is to stand still, nothing while it runs.
    /// A request that is not a number is none, the same as 0.
    [[nodiscard]] std::optional<FanDecision> stopDecision(std::int64_t fanID,
                                                          numbers::Percent requested,
                                                          bool isRuleOverride, Date now);

private:
    using Overrides = std::map<std::int64_t, numbers::Percent>;  ///< by fan

    using Sensor = std::pair<const std::string, double>;  ///< id and smoothed °C
    /// What a decision is made with, besides what is remembered.
    struct Step {
        const sensors::Fan& fan;
        numbers::RPM maxDelta;
        Date now;
        FanRecord& record;
    };

    void smooth(const sensors::SensorSnapshot& snapshot, double alpha, EvaluationRecord* record);
    Overrides applyRules(const plan::FanControlPlan& plan, Date now);
    void updateLatch(const plan::FanRule& rule, std::optional<double> watched, Date now);
    /// The sensor that is meant, the hottest without an id; null when there is none.
    [[nodiscard]] const Sensor* sensor(const std::optional<std::string>& sensorID) const;
    [[nodiscard]] const Sensor* hottestSensor() const;
    [[nodiscard]] std::optional<double> temperature(
        const std::optional<std::string>& sensorID) const;
    [[nodiscard]] std::optional<TemperatureRecord> recordOf(
        const std::optional<std::string>& sensorID) const;
    [[nodiscard]] std::vector<RuleRecord> recordRules(const plan::FanControlPlan& plan,
                                                      const std::set<plan::UUID>& before) const;
    void complete(FanRecord& record, const plan::FanControlPlan& plan,
                  const plan::FanPlan& fanPlan) const;
    FanDecision decide(const plan::FanPlan& fanPlan, const Overrides& overrides, const Step& step);
    FanDecision decideCurve(const plan::FanCurve& curve, const Step& step);
    FanDecision decidePercent(numbers::Percent requested, bool isRuleOverride, const Step& step);
    FanDecision release(std::int64_t fanID);
    FanDecision target(const sensors::Fan& fan, numbers::RPM speed);
    FanDecision stopped(std::int64_t fanID, FanDecision decision);
    void clearStop(std::int64_t fanID);
};

}  // namespace airflow::evaluation
