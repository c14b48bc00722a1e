#include <cmath>
#include <cstddef>

#include "evaluation/Ticks.h"

namespace airflow::evaluation {
namespace {

using plan::FanCurve;

constexpr double rounding = 1e-6;

auto plansFor(const plan::FanControlPlan& plan, std::int64_t fanID) {
    return std::ranges::count(plan.fans, fanID, &plan::FanPlan::fanID);
}

const sensors::Fan& fanOf(const Tick& tick, std::int64_t id) {
    return *std::ranges::find(tick.snapshot.fans, id, &sensors::Fan::id);
}

double within(const sensors::Fan& fan, double speed) {
    return std::min(std::max(speed, static_cast<double>(fan.minRPM)),
                    static_cast<double>(fan.maxRPM));
}

/// Counts how often what a property speaks of came about. A property that is hardly ever put to the
/// test proves nothing.
struct Tally {
    int count = 0;
    ~Tally() { EXPECT_GT(count, 100); }  // of 1,000 cases or more
};

class PlanEvaluatorProperty : public testing::Test {
protected:
    /// Calls `step(journey, tick, decisions, state)` after every tick of many journeys. The state
    /// is the step's own; each journey begins with a new one.
    template <typename State>
    void check(auto step) {
        EXPECT_TRUE(rc::check([&] {
            Journey journey;
            State state;
            for (const Tick& tick : *generators::ticks()) {
                step(journey, tick, journey.step(tick), state);
            }
        }));
    }
};

struct NoState {};

TEST_F(PlanEvaluatorProperty, aTargetLiesWithinTheLimitsOfItsFan) {
    Tally targets;
    check<NoState>([&](const Journey&, const Tick& tick, const Decisions& decisions, NoState&) {
        for (const auto& [id, decision] : decisions) {
            const auto* target = std::get_if<Target>(&decision);
            if (!target) continue;
            ++targets.count;
            const sensors::Fan& fan = fanOf(tick, id);
            RC_ASSERT(target->rpm >= static_cast<double>(std::min(fan.minRPM, fan.maxRPM)));
            RC_ASSERT(target->rpm <= static_cast<double>(fan.maxRPM));
        }
    });
}

TEST_F(PlanEvaluatorProperty, everyPlannedFanOfTheSnapshotIsDecidedAndNoOther) {
    check<NoState>([](const Journey& journey, const Tick& tick, const Decisions& decisions,
                      NoState&) {
        for (std::int64_t id = 0; id < 4; ++id) {
            const bool isPlanned = plansFor(journey.plan, id) > 0;
            const bool isThere = std::ranges::count(tick.snapshot.fans, id, &sensors::Fan::id) > 0;
            RC_ASSERT(decisions.contains(id) == (isPlanned && isThere));
        }
    });
}

using LastTargets = std::map<std::int64_t, double>;

/// The speeds that fans had before the tick, as the outside knows them.
void remember(LastTargets& last, const Decisions& decisions) {
    for (const auto& [id, decision] : decisions) {
        if (const auto* target = std::get_if<Target>(&decision))
            last[id] = target->rpm;
        else
            last.erase(id);
    }
}

// A fan's limits may move between ticks and then move the target further than the rate limit would;
// but no further than they must.
TEST_F(PlanEvaluatorProperty, aCurveTargetLiesAtMostTheLimitFromTheTargetBefore) {
    Tally steps;
    Tally full;
    Tally forcedByLimits;
    check<LastTargets>([&](const Journey& journey, const Tick& tick, const Decisions& decisions,
                           LastTargets& last) {
        const double maxDelta = journey.plan.tuning.maxDeltaRPMPerTick;
        for (const auto& [id, decision] : decisions) {
            const auto* target = std::get_if<Target>(&decision);
            const bool isCurve = std::holds_alternative<FanCurve>(journey.modeOf(id).mode);
            const bool isOnlyPlan = plansFor(journey.plan, id) == 1;
            if (!target || !isCurve || !isOnlyPlan || !last.contains(id)) continue;
            if (journey.isOverridden(id)) continue;
            ++steps.count;
            const double before = last.at(id);
            const double step = std::abs(target->rpm - before);
            const sensors::Fan& fan = fanOf(tick, id);
            if (within(fan, before) == before) {
                RC_ASSERT(step <= maxDelta + rounding);
                full.count += step >= maxDelta - rounding && step > 0;
            } else {
                RC_ASSERT(target->rpm >= within(fan, before - maxDelta) - rounding);
                RC_ASSERT(target->rpm <= within(fan, before + maxDelta) + rounding);
                ++forcedByLimits.count;
            }
        }
        remember(last, decisions);
    });
}

TEST_F(PlanEvaluatorProperty, aCurveTargetMovesTowardsWhatTheCurveAsksFor) {
    Tally steps;
    check<LastTargets>([&](const Journey& journey, const Tick& tick, const Decisions& decisions,
                           LastTargets& last) {
        for (const auto& [id, decision] : decisions) {
            const auto* target = std::get_if<Target>(&decision);
            const auto* curve = std::get_if<FanCurve>(&journey.modeOf(id).mode);
            const bool isOnlyPlan = plansFor(journey.plan, id) == 1;
            if (!target || !curve || !isOnlyPlan || journey.isOverridden(id)) continue;
            const sensors::Fan& fan = fanOf(tick, id);
            if (fan.minRPM != 1000 || fan.maxRPM != 5000) continue;
            ++steps.count;
            const auto& ema = journey.evaluator.emaBySensor;
            const double celsius = curve->sourceSensorID ? ema.at(*curve->sourceSensorID)
                                                         : *journey.evaluator.hottest();
            const double asked = 1000 + 40 * curve->percentAt(celsius);
            const double before = last.contains(id) ? within(fan, last.at(id)) : asked;
            RC_ASSERT(target->rpm >= std::min(before, asked) - rounding);
            RC_ASSERT(target->rpm <= std::max(before, asked) + rounding);
        }
        remember(last, decisions);
    });
}

TEST_F(PlanEvaluatorProperty, anAutomaticFanIsReleasedUnlessARuleDrivesIt) {
    Tally automatic;
    check<NoState>([&](const Journey& journey, const Tick&, const Decisions& decisions, NoState&) {
        for (const auto& [id, decision] : decisions) {
            if (!journey.modeOf(id).isAutomatic() || journey.isOverridden(id)) continue;
            ++automatic.count;
            RC_ASSERT(decision == released);
        }
    });
}

TEST_F(PlanEvaluatorProperty, aRuleNeverReleasesAFan) {
    Tally overridden;
    check<NoState>([&](const Journey& journey, const Tick&, const Decisions& decisions, NoState&) {
        for (const auto& [id, decision] : decisions) {
            if (!journey.isOverridden(id)) continue;
            ++overridden.count;
            RC_ASSERT(decision != released);
        }
    });
}

TEST_F(PlanEvaluatorProperty, whatIsRememberedOfAFanAgreesWithWhatWasDecided) {
    Tally idle;
    check<NoState>([&](const Journey& journey, const Tick&, const Decisions& decisions, NoState&) {
        const PlanEvaluator& evaluator = journey.evaluator;
        for (const auto& [id, decision] : decisions) {
            const auto* target = std::get_if<Target>(&decision);
            RC_ASSERT(evaluator.lastTargetByFan.contains(id) == (target != nullptr));
            if (target) RC_ASSERT(evaluator.lastTargetByFan.at(id) == target->rpm);
            RC_ASSERT(evaluator.stoppedFans.contains(id) == (decision == stopped));
            idle.count += decision == stopped;
        }
        for (const auto& [id, since] : evaluator.resumeSince) {
            RC_ASSERT(evaluator.stoppedFans.contains(id));
            RC_ASSERT(!evaluator.zeroSince.contains(id));
        }
    });
}

RC_GTEST_PROP(PlanEvaluatorProperties, theSameTicksGiveTheSameDecisions, ()) {
    Journey one;
    Journey other;
    for (const Tick& tick : *generators::ticks()) {
        RC_ASSERT(one.step(tick) == other.step(tick));
        RC_ASSERT(one.evaluator == other.evaluator);
    }
}

/// Rotations, turned around or not, are all the orders of three.
template <typename T>
std::vector<T> anyOrderOf(std::vector<T> values) {
    const auto first = *rc::gen::inRange<std::ptrdiff_t>(0, 3);
    if (first < std::ssize(values)) std::ranges::rotate(values, values.begin() + first);
    if (*rc::gen::arbitrary<bool>()) std::ranges::reverse(values);
    return values;
}

RC_GTEST_PROP(PlanEvaluatorProperties, theOrderOfFansAndSensorsInASnapshotDoesNotMatter, ()) {
    Journey one;
    Journey other;
    for (const Tick& tick : *generators::ticks()) {
        Tick shuffled = tick;
        shuffled.snapshot.fans = anyOrderOf(tick.snapshot.fans);
        shuffled.snapshot.temps = anyOrderOf(tick.snapshot.temps);
        RC_ASSERT(one.step(tick) == other.step(shuffled));
        RC_ASSERT(one.evaluator == other.evaluator);
    }
}

RC_GTEST_PROP(PlanEvaluatorProperties, aSmoothedTemperatureLiesAmongTheReadings, ()) {
    Journey journey;
    std::map<std::string, std::pair<double, double>> rangeBySensor;
    for (const Tick& tick : *generators::ticks()) {
        journey.step(tick);
        std::map<std::string, std::pair<double, double>> seen;
        for (const sensors::TempSensor& sensor : tick.snapshot.temps) {
            auto range = std::pair(sensor.celsius, sensor.celsius);
            if (const auto before = rangeBySensor.find(sensor.id());
                before != rangeBySensor.end()) {
                range = {std::min(range.first, before->second.first),
                         std::max(range.second, before->second.second)};
            }
            seen[sensor.id()] = range;
        }
        rangeBySensor = seen;
        RC_ASSERT(journey.evaluator.emaBySensor.size() == rangeBySensor.size());
        for (const auto& [id, range] : rangeBySensor) {
            RC_ASSERT(journey.evaluator.emaBySensor.at(id) >= range.first - rounding);
            RC_ASSERT(journey.evaluator.emaBySensor.at(id) <= range.second + rounding);
        }
    }
}

}  // namespace
}  // namespace airflow::evaluation
