// Ticks: random sequences of plans, readings and times for an evaluator, which shrink.
#pragma once

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <string>

#include "evaluation/Builders.h"

namespace airflow::evaluation {

/// What an evaluator is given in one tick. Numbers of fans and ids of sensors are unique in it.
struct Tick {
    double elapsed = 1;  ///< seconds since the tick before; negative when the clock jumped back
    sensors::SensorSnapshot snapshot;
    std::optional<plan::FanControlPlan> plan;  ///< from now on; absent: the plan is as it was
};

inline std::ostream& operator<<(std::ostream& out, const Tick& tick) {
    out << "\n  after " << tick.elapsed << " s:";
    for (const auto& sensor : tick.snapshot.temps)
        out << ' ' << sensor.key << '=' << sensor.celsius;
    for (const auto& fan : tick.snapshot.fans) {
        out << " fan " << fan.id << " [" << fan.minRPM << ", " << fan.maxRPM << ']';
    }
    if (tick.plan) out << " plan " << json::encode(*tick.plan).value_or("");
    return out;
}

namespace generators {

template <typename T>
rc::Gen<std::optional<T>> optional(rc::Gen<T> generator) {
    return rc::gen::map(rc::gen::maybe(std::move(generator)), [](rc::Maybe<T> value) {
        return value ? std::optional<T>(std::move(*value)) : std::nullopt;
    });
}

/// At most this many.
template <typename T>
rc::Gen<std::vector<T>> few(int count, rc::Gen<T> generator) {
    return rc::gen::resize(
        count, rc::gen::container<std::vector<T>>(rc::gen::resize(100, std::move(generator))));
}

/// In steps of a half, so that comparisons meet at equal values often.
inline rc::Gen<double> halves(int from, int to) {
    return rc::gen::map(rc::gen::resize(100, rc::gen::inRange(2 * from, 2 * to + 1)),
                        [](int twice) { return twice / 2.0; });
}

inline rc::Gen<double> celsius() {
    return halves(-10, 110);
}

/// Often nothing, and often around the level at which a stopped fan resumes.
inline rc::Gen<double> percent() {
    return rc::gen::weightedOneOf<double>(
        {{4, rc::gen::just(0.0)}, {2, halves(-2, 5)}, {3, halves(-10, 120)}});
}

inline rc::Gen<double> elapsed() {
    return rc::gen::weightedOneOf<double>({{12, halves(0, 6)}, {1, halves(-60, 60)}});
}

inline rc::Gen<std::optional<std::string>> sensorID() {
    return rc::gen::element<std::optional<std::string>>(std::nullopt, "SMC-A", "SMC-B", "SMC-X");
}

inline rc::Gen<std::int64_t> fanID() {
    return rc::gen::inRange<std::int64_t>(0, 3);
}

inline rc::Gen<Mode> curveMode() {
    using plan::CurvePoint;
    using plan::FanCurve;
    const auto point = rc::gen::build<CurvePoint>(rc::gen::set(&CurvePoint::celsius, celsius()),
                                                  rc::gen::set(&CurvePoint::percent, percent()));
    return rc::gen::map(
        rc::gen::build<FanCurve>(rc::gen::set(&FanCurve::sourceSensorID, sensorID()),
                                 rc::gen::set(&FanCurve::points, few(4, point))),
        &Mode::curve);
}

inline rc::Gen<Mode> mode() {
    return rc::gen::weightedOneOf<Mode>({{1, rc::gen::just(Mode::automatic())},
                                         {1, rc::gen::map(halves(-10, 7000), &Mode::fixedRPM)},
                                         {2, rc::gen::map(percent(), &Mode::fixedPercent)},
                                         {4, curveMode()}});
}

inline rc::Gen<plan::FanPlan> fanPlan() {
    return rc::gen::build<plan::FanPlan>(rc::gen::set(&plan::FanPlan::fanID, fanID()),
                                         rc::gen::set(&plan::FanPlan::mode, mode()));
}

inline rc::Gen<plan::FanRule> fanRule() {
    using plan::FanRule;
    return rc::gen::build<FanRule>(
        rc::gen::set(&FanRule::sensorID, sensorID()),
        rc::gen::set(&FanRule::thresholdCelsius, halves(20, 90)),
        rc::gen::set(&FanRule::releaseBelowCelsius, halves(20, 90)),
        rc::gen::set(&FanRule::targetPercent, percent()),
        rc::gen::set(&FanRule::fanTarget, rc::gen::map(optional(fanID()),
                                                       [](std::optional<std::int64_t> id) {
                                                           return plan::RuleFanTarget{.fanID = id};
                                                       })),
        rc::gen::set(&FanRule::dwellSeconds, halves(0, 5)),
        rc::gen::set(&FanRule::enabled, rc::gen::weightedElement<bool>({{4, true}, {1, false}})));
}

inline rc::Gen<plan::ControlTuning> tuning() {
    using plan::ControlTuning;
    return rc::gen::build<ControlTuning>(
        rc::gen::set(&ControlTuning::emaAlpha, rc::gen::element(0.0, 0.25, 0.3, 1.0)),
        rc::gen::set(&ControlTuning::maxDeltaRPMPerTick, halves(0, 1000)));
}

/// Two rules never share an identity in a plan, but another plan's rule may take it over.
inline rc::Gen<std::vector<plan::FanRule>> fanRules() {
    return rc::gen::map(few(3, fanRule()), [](std::vector<plan::FanRule> rules) {
        std::uint8_t id = 0;
        for (plan::FanRule& rule : rules) rule.id = ruleID(++id);
        return rules;
    });
}

inline rc::Gen<plan::FanControlPlan> fanControlPlan() {
    using plan::FanControlPlan;
    return rc::gen::build<FanControlPlan>(rc::gen::set(&FanControlPlan::fans, few(6, fanPlan())),
                                          rc::gen::set(&FanControlPlan::rules, fanRules()),
                                          rc::gen::set(&FanControlPlan::tuning, tuning()));
}

/// Mostly sensible limits, sometimes any, equal and contradicting ones among them.
inline rc::Gen<std::pair<std::int64_t, std::int64_t>> limits() {
    const auto any = rc::gen::map(rc::gen::inRange<std::int64_t>(0, 9),
                                  [](std::int64_t steps) { return steps * 750; });
    return rc::gen::weightedOneOf<std::pair<std::int64_t, std::int64_t>>(
        {{5, rc::gen::just(std::pair<std::int64_t, std::int64_t>(1000, 5000))},
         {1, rc::gen::pair(any, any)}});
}

inline rc::Gen<sensors::SensorSnapshot> sensorSnapshot() {
    const auto collect = [](const auto& allLimits, const auto& readings) {
        sensors::SensorSnapshot snapshot;
        for (std::size_t i = 0; i < allLimits.size(); ++i) {
            if (!allLimits[i]) continue;
            const auto [min, max] = *allLimits[i];
            snapshot.fans.push_back(fan(static_cast<std::int64_t>(i), min, max));
        }
        for (std::size_t i = 0; i < readings.size(); ++i) {
            const std::string key(1, static_cast<char>('A' + i));
            if (readings[i]) snapshot.temps.push_back(sensor(key, *readings[i]));
        }
        return snapshot;
    };
    using AllLimits = std::vector<std::optional<std::pair<std::int64_t, std::int64_t>>>;
    using Readings = std::vector<std::optional<double>>;
    return rc::gen::apply(collect, rc::gen::container<AllLimits>(3, optional(limits())),
                          rc::gen::container<Readings>(3, optional(celsius())));
}

/// A new plan in every fourth tick.
inline rc::Gen<Tick> tick() {
    using NewPlan = std::optional<plan::FanControlPlan>;
    const auto somePlan = rc::gen::map(
        fanControlPlan(), [](plan::FanControlPlan plan) { return NewPlan(std::move(plan)); });
    return rc::gen::build<Tick>(
        rc::gen::set(&Tick::elapsed, elapsed()), rc::gen::set(&Tick::snapshot, sensorSnapshot()),
        rc::gen::set(&Tick::plan, rc::gen::weightedOneOf<NewPlan>(
                                      {{3, rc::gen::just(NewPlan())}, {1, somePlan}})));
}

/// Up to 30 ticks.
inline rc::Gen<std::vector<Tick>> ticks() {
    return rc::gen::scale(0.3, rc::gen::container<std::vector<Tick>>(rc::gen::resize(100, tick())));
}

}  // namespace generators

/// An evaluator on its way through ticks.
struct Journey {
    PlanEvaluator evaluator;
    plan::FanControlPlan plan;
    double now = 0;

    Decisions step(const Tick& tick) {
        now += tick.elapsed;
        if (tick.plan) plan = *tick.plan;
        return evaluator.evaluate(plan, tick.snapshot, at(now));
    }

    /// Whether a rule drove this fan in the last step.
    [[nodiscard]] bool isOverridden(std::int64_t fanID) const {
        return std::ranges::any_of(plan.rules, [&](const plan::FanRule& rule) {
            return rule.enabled && evaluator.ruleLatched.contains(rule.id) &&
                   rule.fanTarget.fanID.value_or(fanID) == fanID;
        });
    }

    /// The mode that decided for this fan, if no rule did: the last of the plan's.
    [[nodiscard]] const Mode& modeOf(std::int64_t fanID) const {
        return std::ranges::find(plan.fans.rbegin(), plan.fans.rend(), fanID, &plan::FanPlan::fanID)
            ->mode;
    }
};

}  // namespace airflow::evaluation
