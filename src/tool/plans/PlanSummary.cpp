#include "tool/plans/PlanSummary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <optional>

#include "text/Text.h"

namespace airflow::tool {

namespace {

std::string sensorName(const std::optional<std::string>& sensorID) {
    return sensorID ? "sensor " + text::printable(*sensorID) : "the hottest sensor";
}

struct ModeDescription {
    std::string operator()(const plan::FixedRPM& fixed) const {
        return text::plain(fixed.rpm) + " RPM";
    }
    std::string operator()(const plan::FixedPercent& fixed) const {
        return text::plain(fixed.percent) + " % of its range";
    }
    std::string operator()(const plan::FanCurve& curve) const {
        if (curve.points.empty()) return "a curve without points: 0 % at any temperature";
        std::vector<std::string> points;
        auto sorted = curve.points;
        std::ranges::sort(sorted, {}, &plan::CurvePoint::celsius);
        for (const plan::CurvePoint& point : sorted) {
            points.push_back(fmt::format("{} °C → {} %", text::plain(point.celsius),
                                         text::plain(point.percent)));
        }
        return fmt::format("curve on {}: {}", sensorName(curve.sourceSensorID),
                           fmt::join(points, ", "));
    }
    std::string operator()(const plan::Automatic&) const { return "left to the firmware"; }
};

std::string describe(const plan::FanRule& rule) {
    const std::string fans = rule.fanTarget.fanID ? fmt::format("fan {}", *rule.fanTarget.fanID)
                                                  : std::string("all fans");
    return fmt::format(
        "\"{}\"{}: {} to {} % once {} has been above {} °C for {} s, until below {} °C",
        text::printable(rule.name), rule.enabled ? "" : " (disabled)", fans,
        text::plain(rule.targetPercent), sensorName(rule.sensorID),
        text::plain(rule.thresholdCelsius), text::plain(rule.dwellSeconds),
        text::plain(rule.releaseLevel()));
}

}  // namespace

std::string summarise(const plan::FanControlPlan& plan) {
    std::string text;
    if (plan.fans.empty()) text += "  no fans: everything is left to the firmware\n";
    for (const plan::FanPlan& fan : plan.fans) {
        text +=
            fmt::format("  fan {}: {}\n", fan.fanID, std::visit(ModeDescription{}, fan.mode.mode));
    }
    for (std::size_t i = 0; i < plan.rules.size(); ++i) {
        text += fmt::format("  rule {}: {}\n", i + 1, describe(plan.rules[i]));
    }
    text +=
        fmt::format("  tuning: newest reading weighs {}, curves move at most {} RPM a tick\n",
                    text::plain(plan.tuning.emaAlpha), text::plain(plan.tuning.maxDeltaRPMPerTick));
    return text;
}

}  // namespace airflow::tool
