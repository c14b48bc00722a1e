#include "evaluation/PlanEvaluator.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "evaluation/FanStopPolicy.h"

namespace airflow::evaluation {

namespace {

using concurrency::Seconds;
using numbers::Percent;
using numbers::RPM;

Percent clamped(Percent share) {
    const double percent = share.value();
    if (!(percent > 0)) return Percent(0);  // also when it is not a number
    return Percent(percent > 100 ? 100 : percent);
}

RPM speedAt(const sensors::Fan& fan, Percent share) {
    const auto min = static_cast<double>(fan.minRPM);
    const auto max = static_cast<double>(fan.maxRPM);
    return RPM(min + clamped(share).value() * (max - min) / 100);
}

/// Raised to the minimum, then lowered to the maximum, which wins where they contradict.
RPM clamped(const sensors::Fan& fan, RPM speed) {
    const double rpm = speed.value();
    const auto min = static_cast<double>(fan.minRPM);
    const auto max = static_cast<double>(fan.maxRPM);
    const double raised = rpm >= min ? rpm : min;
    return RPM(raised > max ? max : raised);
}

}  // namespace

std::map<std::int64_t, FanDecision> PlanEvaluator::evaluate(const plan::FanControlPlan& plan,
                                                            const sensors::SensorSnapshot& snapshot,
                                                            Date now, EvaluationRecord* record) {
    if (record) *record = {.time = now};
    smooth(snapshot, plan.tuning.emaAlpha, record);
    const auto latchedBefore = record ? ruleLatched : std::set<plan::UUID>();
    const Overrides overrides = applyRules(plan, now);
    if (record) {
        record->hottest = recordOf(std::nullopt);
        record->rules = recordRules(plan, latchedBefore);
    }
    std::map<std::int64_t, FanDecision> decisions;
    for (const plan::FanPlan& fanPlan : plan.fans) {
        const auto fan = std::ranges::find(snapshot.fans, fanPlan.fanID, &sensors::Fan::id);
        if (fan == snapshot.fans.end()) continue;
        FanRecord made{.minRPM = fan->minRPM, .maxRPM = fan->maxRPM};
        const Step step{.fan = *fan,
                        .maxDelta = RPM(plan.tuning.maxDeltaRPMPerTick),
                        .now = now,
                        .record = made};
        made.decision = decide(fanPlan, overrides, step);
        decisions[fanPlan.fanID] = made.decision;
        if (!record) continue;
        complete(made, plan, fanPlan);
        record->fans[fanPlan.fanID] = std::move(made);
    }
    return decisions;
}

std::optional<double> PlanEvaluator::hottest() const {
    const Sensor* const found = hottestSensor();
    return found ? std::optional(found->second) : std::nullopt;
}

const PlanEvaluator::Sensor* PlanEvaluator::hottestSensor() const {
    const Sensor* hottest = nullptr;
    for (const Sensor& sensor : emaBySensor) {
        if (!hottest || std::isnan(hottest->second) || sensor.second > hottest->second)
            hottest = &sensor;
    }
    return hottest;
}

void PlanEvaluator::smooth(const sensors::SensorSnapshot& snapshot, double alpha,
                           EvaluationRecord* record) {
    std::vector<const double*> current;  // the entries of this snapshot's sensors
    for (const sensors::TempSensor& sensor : snapshot.temps) {
        const auto [entry, isNew] = emaBySensor.try_emplace(sensor.id(), sensor.celsius);
        const double before = entry->second;
        if (!isNew) entry->second = alpha * sensor.celsius + (1 - alpha) * before;
        current.push_back(&entry->second);
        if (!record) continue;
        record->sensors[entry->first] = {.raw = sensor.celsius,
                                         .before = isNew ? std::nullopt : std::optional(before),
                                         .smoothed = entry->second};
    }
    std::ranges::sort(current);
    std::erase_if(emaBySensor, [&current](const auto& entry) {
        return !std::ranges::binary_search(current, &entry.second);
    });
}

PlanEvaluator::Overrides PlanEvaluator::applyRules(const plan::FanControlPlan& plan, Date now) {
    Overrides overrides;
    for (const plan::FanRule& rule : plan.rules) {
        if (!rule.enabled) continue;
        updateLatch(rule, temperature(rule.sensorID), now);
        if (!ruleLatched.contains(rule.id)) continue;
        const Percent forced(rule.targetPercent);
        if (rule.fanTarget.fanID) {
            overrides.emplace(*rule.fanTarget.fanID, forced);
            continue;
        }
        for (const plan::FanPlan& fan : plan.fans) overrides.emplace(fan.fanID, forced);
    }
    return overrides;
}

void PlanEvaluator::updateLatch(const plan::FanRule& rule, std::optional<double> watched,
                                Date now) {
    if (ruleLatched.contains(rule.id)) {
        if (watched && *watched < rule.releaseLevel()) {
            ruleLatched.erase(rule.id);
            ruleFiringSince.erase(rule.id);
        }
    } else if (watched && *watched > rule.thresholdCelsius) {
        const Date start = ruleFiringSince.emplace(rule.id, now).first->second;
        if (now - start >= Seconds(rule.dwellSeconds)) ruleLatched.insert(rule.id);
    } else {
        ruleFiringSince.erase(rule.id);
    }
}

const PlanEvaluator::Sensor* PlanEvaluator::sensor(
    const std::optional<std::string>& sensorID) const {
    if (!sensorID) return hottestSensor();
    const auto found = emaBySensor.find(*sensorID);
    return found == emaBySensor.end() ? nullptr : &*found;
}

std::optional<double> PlanEvaluator::temperature(const std::optional<std::string>& sensorID) const {
    const Sensor* const found = sensor(sensorID);
    return found ? std::optional(found->second) : std::nullopt;
}

FanDecision PlanEvaluator::decide(const plan::FanPlan& fanPlan, const Overrides& overrides,
                                  const Step& step) {
    const std::int64_t fan = step.fan.id;
    if (const auto forced = overrides.find(fan); forced != overrides.end()) {
        return decidePercent(forced->second, true, step);
    }
    if (const auto* fixed = std::get_if<plan::FixedRPM>(&fanPlan.mode.mode)) {
        clearStop(fan);
        step.record.wantedRPM = fixed->rpm;
        return target(step.fan, RPM(fixed->rpm));
    }
    if (const auto* fixed = std::get_if<plan::FixedPercent>(&fanPlan.mode.mode)) {
        return decidePercent(clamped(Percent(fixed->percent)), false, step);
    }
    if (const auto* curve = std::get_if<plan::FanCurve>(&fanPlan.mode.mode)) {
        return decideCurve(*curve, step);
    }
    return release(fan);
}

FanDecision PlanEvaluator::decidePercent(Percent requested, bool isRuleOverride, const Step& step) {
    step.record.percent = requested.value();
    if (auto stop = stopDecision(step.fan.id, requested, isRuleOverride, step.now)) {
        return stopped(step.fan.id, *stop);
    }
    const RPM speed = speedAt(step.fan, requested);
    step.record.wantedRPM = speed.value();
    return target(step.fan, speed);
}

FanDecision PlanEvaluator::decideCurve(const plan::FanCurve& curve, const Step& step) {
    const std::int64_t fan = step.fan.id;
    const auto celsius = temperature(curve.sourceSensorID);
    if (!celsius) return release(fan);
    const Percent percent(curve.percentAt(*celsius));
    step.record.percent = percent.value();
    if (auto stop = stopDecision(fan, percent, false, step.now)) return stopped(fan, *stop);
    double rpm = speedAt(step.fan, percent).value();
    step.record.wantedRPM = rpm;
    if (const auto last = lastTargetByFan.find(fan); last != lastTargetByFan.end()) {
        rpm = std::max(rpm, last->second - step.maxDelta.value());
        rpm = std::min(rpm, last->second + step.maxDelta.value());
        step.record.lastRPM = last->second;
        step.record.limitedRPM = rpm;
    }
    return target(step.fan, RPM(rpm));
}

FanDecision PlanEvaluator::release(std::int64_t fanID) {
    lastTargetByFan.erase(fanID);
    clearStop(fanID);
    return ReleaseToAuto{};
}

FanDecision PlanEvaluator::target(const sensors::Fan& fan, RPM speed) {
    const double final = clamped(fan, speed).value();
    lastTargetByFan[fan.id] = final;
    return Target{final};
}

/// The last target is forgotten, so that a curve's first target after a restart is not held back.
FanDecision PlanEvaluator::stopped(std::int64_t fanID, FanDecision decision) {
    lastTargetByFan.erase(fanID);
    return decision;
}

void PlanEvaluator::clearStop(std::int64_t fanID) {
    zeroSince.erase(fanID);
    resumeSince.erase(fanID);
    stoppedFans.erase(fanID);
}

std::optional<FanDecision> PlanEvaluator::stopDecision(std::int64_t fanID, Percent requested,
                                                       bool isRuleOverride, Date now) {
    if (!(requested > Percent(0))) {
        resumeSince.erase(fanID);
        const Date start = zeroSince.emplace(fanID, now).first->second;
        const bool isStopped = stoppedFans.contains(fanID);
        if (!isStopped && now - start < FanStopPolicy::stopDwellSeconds) return std::nullopt;
        stoppedFans.insert(fanID);
        return IdleStopped{};
    }
    zeroSince.erase(fanID);
    if (!stoppedFans.contains(fanID)) return std::nullopt;
    if (isRuleOverride) {
        clearStop(fanID);
        return std::nullopt;
    }
    if (requested < FanStopPolicy::resumePercent) {
        resumeSince.erase(fanID);
        return IdleStopped{};
    }
    const Date start = resumeSince.emplace(fanID, now).first->second;
    if (now - start < FanStopPolicy::resumeDwellSeconds) return IdleStopped{};
    clearStop(fanID);
    return std::nullopt;
}

}  // namespace airflow::evaluation
