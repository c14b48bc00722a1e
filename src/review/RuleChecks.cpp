#include "review/RuleChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>

#include "control/ThermalCeiling.h"
#include "json/Places.h"
#include "review/PercentChecks.h"
#include "review/SensorChecks.h"
#include "text/Text.h"

namespace airflow::review {

namespace {

using control::thermalCeiling;
using text::plain;

/// °C a second; the rise that a rule has to be ahead of.
constexpr double fastRise = 1;

double dwell(const plan::FanRule& rule) {
    return std::max(rule.dwellSeconds, 0.0);
}

/// How long a fast rise takes from the threshold to the ceiling, in seconds.
double secondsToCeiling(const plan::FanRule& rule) {
    return (thermalCeiling - rule.thresholdCelsius) / fastRise;
}

bool canFire(const plan::FanRule& rule) {
    return rule.enabled && rule.thresholdCelsius < thermalCeiling;
}

bool targets(const plan::FanRule& rule, std::int64_t fanID) {
    return rule.fanTarget.fanID.value_or(fanID) == fanID;
}

class RuleCheck {
public:
    RuleCheck(const plan::FanControlPlan& ownPlan, std::size_t ownIndex, Report& ownReport)
        : plan(ownPlan),
          rule(plan.rules[ownIndex]),
          index(ownIndex),
          pointer(json::pointerTo("/rules", ownIndex)),
          report(ownReport) {}

    void checkTemperatures() const {
        if (rule.thresholdCelsius >= thermalCeiling) {
            add(Subject::ruleBeyondCeiling, "thresholdCelsius",
                fmt::format("The rule never fires: at {} °C all fans are given back, and it fires "
                            "above {} °C.",
                            plain(thermalCeiling), plain(rule.thresholdCelsius)),
                fmt::format("Write a threshold well below {}.", plain(thermalCeiling)));
        }
        if (rule.releaseBelowCelsius > rule.thresholdCelsius - 0.5) {
            add(Subject::ruleReleaseTooHigh, "releaseBelowCelsius",
                fmt::format("{} °C is not half a degree below the threshold: the rule lets go "
                            "below {} °C instead.",
                            plain(rule.releaseBelowCelsius), plain(rule.releaseLevel())),
                fmt::format("Write {} or less; some degrees less keep the rule from switching "
                            "often.",
                            plain(rule.releaseLevel())));
        }
    }

    void checkDwell() const {
        if (rule.dwellSeconds < 0) {
            add(Subject::ruleNegativeDwell, "dwellSeconds",
                fmt::format("{} s counts as 0: the rule latches at once.",
                            plain(rule.dwellSeconds)),
                "Write 0, or how long the temperature has to last.");
        }
        const double bound = secondsToCeiling(rule);
        if (rule.thresholdCelsius >= thermalCeiling || rule.dwellSeconds < bound) return;
        add(Subject::ruleDwellTooLong, "dwellSeconds",
            fmt::format("The rule waits for {} s. A temperature that rises by {} °C a second is at "
                        "{} °C, where all fans are given back, {} s after the threshold.",
                        plain(rule.dwellSeconds), plain(fastRise), plain(thermalCeiling),
                        plain(bound)),
            fmt::format("Write less than {}, or a lower threshold.", plain(bound)));
    }

    void checkTarget() const {
        checkPercent(rule.targetPercent, place("targetPercent"), report);
        if (rule.targetPercent <= 0) {
            add(Subject::ruleStopsFans, "targetPercent",
                "The rule stops its fans while the sensor is hot.",
                "Write the percentage that cools, such as 100.");
        }
        const auto& fanID = rule.fanTarget.fanID;
        const bool isListed = !fanID || std::ranges::find(plan.fans, *fanID,
                                                          &plan::FanPlan::fanID) != plan.fans.end();
        if (isListed) return;
        add(Subject::ruleForUnlistedFan, "fanTarget/fan/_0",
            fmt::format("The rule does nothing: the plan does not list fan {}.", *fanID),
            fmt::format("Add {{\"fanID\": {}, \"mode\": {{\"automatic\": {{}}}}}} to \"fans\": the "
                        "rule then overrides the firmware.",
                        *fanID));
    }

    void checkEnabled() const {
        if (rule.enabled) return;
        add(Subject::ruleDisabled, "enabled", "The rule is disabled and does nothing.",
            "Write true to let it fire, or remove it.");
    }

    void checkSensor() const { checkSource(rule.sensorID, place("sensorID"), report); }

    void checkEarlierRules() const {
        for (std::size_t i = 0; i < index; ++i) {
            if (!isHiddenBy(plan.rules[i])) continue;
            report.add(Subject::ruleHidden, pointer,
                       fmt::format("The rule has no effect: whenever it is latched, the earlier "
                                   "rule at /rules/{} is, too, and sets its fans to {} %.",
                                   i, plain(plan.rules[i].targetPercent)),
                       "Put the rule before that one: the earlier of two rules wins.");
            return;
        }
    }

private:
    std::string place(const char* member) const { return pointer + '/' + member; }

    void add(Subject subject, const char* member, std::string reason, std::string advice) const {
        report.add(subject, place(member), std::move(reason), std::move(advice));
    }

    /// Whether `earlier` latches no later, lets go no earlier and has all fans of this rule. Rules
    /// with different sensors are never compared: when one sensor vanishes, its rule stays as it
    /// is.
    bool isHiddenBy(const plan::FanRule& earlier) const {
        if (!canFire(earlier) || !canFire(rule) || earlier.id == rule.id) return false;
        return earlier.sensorID == rule.sensorID && hasAllFansFor(earlier) &&
               earlier.thresholdCelsius <= rule.thresholdCelsius && dwell(earlier) <= dwell(rule) &&
               earlier.releaseLevel() <= rule.releaseLevel();
    }

    bool hasAllFansFor(const plan::FanRule& earlier) const {
        if (rule.fanTarget.fanID) return targets(earlier, *rule.fanTarget.fanID);
        return std::ranges::all_of(
            plan.fans, [&](const plan::FanPlan& fan) { return targets(earlier, fan.fanID); });
    }

    const plan::FanControlPlan& plan;
    const plan::FanRule& rule;
    std::size_t index;
    std::string pointer;
    Report& report;
};

/// The controller begins to evaluate a plan only when some entry manages a fan.
void checkThatAnythingIsManaged(const plan::FanControlPlan& plan, Report& report) {
    const bool isManaged = std::ranges::any_of(
        plan.fans, [](const plan::FanPlan& fan) { return !fan.mode.isAutomatic(); });
    if (isManaged || std::ranges::none_of(plan.rules, &plan::FanRule::enabled)) return;
    report.add(Subject::nothingManaged, "/rules",
               "No rule is ever evaluated: the daemon watches temperatures only while the plan "
               "has a fan that is not automatic.",
               "Give one fan a curve, a percentage or a speed.");
}

void checkIdentities(const std::vector<plan::FanRule>& rules, Report& report) {
    std::map<plan::UUID, std::size_t> first;
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const auto [known, isNew] = first.emplace(rules[i].id, i);
        if (isNew) continue;
        report.add(
            Subject::repeatedRuleID, json::pointerTo("/rules", i) + "/id",
            fmt::format("The rule at /rules/{} has the same id. While both are enabled, they "
                        "share one timer and one latch: each fires and lets go for the "
                        "other.",
                        known->second),
            "Give each rule an id of its own.");
    }
}

}  // namespace

bool isDrivenToFullSpeed(std::int64_t fanID, const std::optional<std::string>& sensorID,
                         const plan::FanControlPlan& plan) {
    return std::ranges::any_of(plan.rules, [&](const plan::FanRule& rule) {
        const bool isInTime = canFire(rule) && rule.dwellSeconds < secondsToCeiling(rule);
        const bool isForSensor = !rule.sensorID || rule.sensorID == sensorID;
        return isInTime && isForSensor && rule.targetPercent >= 100 && targets(rule, fanID);
    });
}

void checkRules(const plan::FanControlPlan& plan, Report& report) {
    checkThatAnythingIsManaged(plan, report);
    checkIdentities(plan.rules, report);
    for (std::size_t i = 0; i < plan.rules.size(); ++i) {
        const RuleCheck check(plan, i, report);
        check.checkTemperatures();
        check.checkDwell();
        check.checkTarget();
        check.checkEnabled();
        check.checkSensor();
        check.checkEarlierRules();
    }
}

}  // namespace airflow::review
