#include "review/FanChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <variant>

#include "evaluation/FanStopPolicy.h"
#include "json/Places.h"
#include "review/CurveChecks.h"
#include "review/PercentChecks.h"
#include "review/RuleChecks.h"
#include "review/SensorChecks.h"
#include "smc/FanNumbers.h"
#include "text/Text.h"

namespace airflow::review {

namespace {

using text::plain;

struct ModeCheck {
    const plan::FanControlPlan& plan;
    const plan::FanPlan& fan;
    const std::string& pointer;  ///< to the mode
    Report& report;

    void operator()(const plan::FixedRPM& fixed) const {
        if (fixed.rpm > 0) return;
        report.add(Subject::fixedRPMNotPositive, pointer + "/fixedRPM/_0",
                   fmt::format("{} RPM counts as the fan's lowest speed; it does not stop the fan.",
                               plain(fixed.rpm)),
                   "Write a speed of the fan's range, or {\"fixedPercent\": {\"_0\": 0}} to stop "
                   "it.");
    }
    void operator()(const plan::FixedPercent& fixed) const {
        const std::string place = pointer + "/fixedPercent/_0";
        checkPercent(fixed.percent, place, report);
        if (fixed.percent > 0) return;
        report.add(Subject::fixedZero, place,
                   fmt::format("{} % stops the fan after {} s, and only a rule starts it again "
                               "before all fans are given back at the ceiling.",
                               plain(fixed.percent),
                               plain(evaluation::FanStopPolicy::stopDwellSeconds.count())),
                   "Write a percentage above 0, or a curve that rises with the temperature.");
    }
    void operator()(const plan::FanCurve& curve) const {
        const std::string place = pointer + "/curve/_0";
        checkCurve(curve, isDrivenToFullSpeed(fan.fanID, curve.sourceSensorID, plan), place,
                   report);
        checkSource(curve.sourceSensorID, place + "/sourceSensorID", report);
    }
    void operator()(const plan::Automatic&) const {}
};

void checkNumber(std::int64_t fanID, const std::string& pointer, Report& report) {
    if (smc::isNameable(fanID)) return;
    report.add(Subject::fanOutOfRange, json::pointerTo(pointer, "fanID"),
               fmt::format("No machine has a fan {}: fans are numbered from 0 to {}.", fanID,
                           smc::mostFans - 1),
               "Write the number of one of the machine's fans; the first is 0.");
}

/// The controller shows the mode of the first entry that manages the fan, and the evaluator goes
/// through all of them: what each does to the fan's memory counts, and the last one's answer.
void checkRepetitions(const plan::FanControlPlan& plan, Report& report) {
    std::map<std::int64_t, std::size_t> lastEntries;
    for (std::size_t i = 0; i < plan.fans.size(); ++i) lastEntries[plan.fans[i].fanID] = i;
    for (std::size_t i = 0; i < plan.fans.size(); ++i) {
        const std::int64_t fanID = plan.fans[i].fanID;
        const std::size_t last = lastEntries[fanID];
        if (last == i) continue;
        report.add(Subject::repeatedFan, json::pointerTo("/fans", i),
                   fmt::format("Fan {} is listed again at /fans/{}. The last entry sets the speed, "
                               "but the first one that is not automatic is shown as the fan's "
                               "mode, and the steps of a curve begin at what the entries before "
                               "it ask for.",
                               fanID, last),
                   "Keep one entry for each fan.");
    }
}

}  // namespace

void checkFans(const plan::FanControlPlan& plan, Report& report) {
    checkRepetitions(plan, report);
    for (std::size_t i = 0; i < plan.fans.size(); ++i) {
        const plan::FanPlan& fan = plan.fans[i];
        const std::string pointer = json::pointerTo("/fans", i);
        checkNumber(fan.fanID, pointer, report);
        std::visit(ModeCheck{plan, fan, pointer + "/mode", report}, fan.mode.mode);
    }
}

}  // namespace airflow::review
