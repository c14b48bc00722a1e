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
                                                            Date now) {
    smooth(snapshot, plan.tuning.emaAlpha);
    const Overrides overrides = applyRules(plan, now);
    std::map<std::int64_t, FanDecision> decisions;
    for (const plan::FanPlan& fanPlan : plan.fans) {
        const auto fan = std::ranges::find(snapshot.fans, fanPlan.fanID, &sensors::Fan::id);
        if (fan == snapshot.fans.end()) continue;
        decisions[fanPlan.fanID] =
            decide(fanPlan, *fan, overrides, RPM(plan.tuning.maxDeltaRPMPerTick), now);
    }
    return decisions;
}

std::optional<double> PlanEvaluator::hottest() const {
    std::optional<double> hottest;
    for (const auto& [id, celsius] : emaBySensor) {
        if (!hottest || std::isnan(*hottest) || celsius > *hottest) hottest = celsius;
    }
    return hottest;
}

void PlanEvaluator::smooth(const sensors::SensorSnapshot& snapshot, double alpha) {
    std::vector<const double*> current;  // the entries of this snapshot's sensors
    for (const sensors::TempSensor& sensor : snapshot.temps) {
        const auto [entry, isNew] = emaBySensor.try_emplace(sensor.id(), sensor.celsius);
        if (!isNew) entry->second = alpha * sensor.celsius + (1 - alpha) * entry->second;
        current.push_back(&entry->second);
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
        // Half a degree below the threshold at least: a rule must not flutter around it.
        const double releaseLevel = std::min(rule.thresholdCelsius - 0.5, rule.releaseBelowCelsius);
        if (watched && *watched < releaseLevel) {
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

std::optional<double> PlanEvaluator::temperature(const std::optional<std::string>& sensorID) const {
    if (!sensorID) return hottest();
    const auto found = emaBySensor.find(*sensorID);
    if (found == emaBySensor.end()) return std::nullopt;
    return found->second;
}

FanDecision PlanEvaluator::decide(const plan::FanPlan& fanPlan, const sensors::Fan& fan,
                                  const Overrides& overrides, RPM maxDelta, Date now) {
    if (const auto forced = overrides.find(fan.id); forced != overrides.end()) {
        return decidePercent(fan, forced->second, true, now);
    }
    if (const auto* fixed = std::get_if<plan::FixedRPM>(&fanPlan.mode.mode)) {
        clearStop(fan.id);
        return target(fan, RPM(fixed->rpm));
    }
    if (const auto* fixed = std::get_if<plan::FixedPercent>(&fanPlan.mode.mode)) {
        return decidePercent(fan, clamped(Percent(fixed->percent)), false, now);
    }
    if (const auto* curve = std::get_if<plan::FanCurve>(&fanPlan.mode.mode)) {
        return decideCurve(*curve, fan, maxDelta, now);
    }
    return release(fan.id);
}

FanDecision PlanEvaluator::decidePercent(const sensors::Fan& fan, Percent requested,
                                         bool isRuleOverride, Date now) {
    if (auto stop = stopDecision(fan.id, requested, isRuleOverride, now)) {
        return stopped(fan.id, *stop);
    }
    return target(fan, speedAt(fan, requested));
}

FanDecision PlanEvaluator::decideCurve(const plan::FanCurve& curve, const sensors::Fan& fan,
                                       RPM maxDelta, Date now) {
    const auto celsius = temperature(curve.sourceSensorID);
    if (!celsius) return release(fan.id);
    const Percent percent(curve.percentAt(*celsius));
    if (auto stop = stopDecision(fan.id, percent, false, now)) return stopped(fan.id, *stop);
    double rpm = speedAt(fan, percent).value();
    if (const auto last = lastTargetByFan.find(fan.id); last != lastTargetByFan.end()) {
        rpm = std::max(rpm, last->second - maxDelta.value());
        rpm = std::min(rpm, last->second + maxDelta.value());
    }
    return target(fan, RPM(rpm));
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
