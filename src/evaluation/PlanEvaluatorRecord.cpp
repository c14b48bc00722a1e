// What an evaluation is recorded as, told from what the evaluator remembers after it.
#include <variant>

#include "evaluation/PlanEvaluator.h"

namespace airflow::evaluation {

std::optional<TemperatureRecord> PlanEvaluator::recordOf(
    const std::optional<std::string>& sensorID) const {
    const Sensor* const found = sensor(sensorID);
    if (!found) return std::nullopt;
    return TemperatureRecord{.sensorID = found->first, .celsius = found->second};
}

std::vector<RuleRecord> PlanEvaluator::recordRules(const plan::FanControlPlan& plan,
                                                   const std::set<plan::UUID>& before) const {
    std::vector<RuleRecord> records;
    for (const plan::FanRule& rule : plan.rules) {
        RuleRecord& record = records.emplace_back();
        record.wasLatched = before.contains(rule.id);
        if (!rule.enabled) continue;
        const auto since = ruleFiringSince.find(rule.id);
        const bool isAbove = since != ruleFiringSince.end();
        record.phase = isAbove ? RuleRecord::Phase::waiting : RuleRecord::Phase::idle;
        if (ruleLatched.contains(rule.id)) record.phase = RuleRecord::Phase::latched;
        record.watched = recordOf(rule.sensorID);
        if (isAbove) record.since = since->second;
    }
    return records;
}

/// What can be told from what is remembered now.
void PlanEvaluator::complete(FanRecord& record, const plan::FanControlPlan& plan,
                             const plan::FanPlan& fanPlan) const {
    const std::int64_t fan = fanPlan.fanID;
    for (std::size_t i = 0; i < plan.rules.size(); ++i) {
        const plan::FanRule& rule = plan.rules[i];
        const bool isTargeted = rule.fanTarget.fanID.value_or(fan) == fan;
        if (rule.enabled && isTargeted && ruleLatched.contains(rule.id)) record.rules.push_back(i);
    }
    const auto* const curve = std::get_if<plan::FanCurve>(&fanPlan.mode.mode);
    if (curve && record.rules.empty()) {
        record.temperature = recordOf(curve->sourceSensorID);
        if (record.temperature) record.segment = curve->segmentAt(record.temperature->celsius);
    }
    const auto dateIn = [fan](const std::map<std::int64_t, Date>& dates) {
        const auto found = dates.find(fan);
        return found == dates.end() ? std::nullopt : std::optional(found->second);
    };
    record.zeroSince = dateIn(zeroSince);
    record.resumeSince = dateIn(resumeSince);
    record.isStopped = stoppedFans.contains(fan);
}

}  // namespace airflow::evaluation
