// Plans: plans and curves of which a test names only what matters.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "plan/FanControlPlan.h"

namespace airflow::tests {

inline plan::FanControlPlan planOf(std::vector<plan::FanPlan> fans) {
    return {.fans = std::move(fans), .rules = {}, .tuning = {}};
}

/// A curve through points of (°C, %).
inline plan::FanControlModePlan curve(const std::vector<std::pair<double, double>>& points,
                                      std::optional<std::string> sourceSensorID = {}) {
    plan::FanCurve curve{.sourceSensorID = std::move(sourceSensorID), .points = {}};
    for (const auto& [celsius, percent] : points) {
        curve.points.push_back({.id = {}, .celsius = celsius, .percent = percent});
    }
    return plan::FanControlModePlan::curve(std::move(curve));
}

/// Asks for as many percent as there are degrees; nothing while the sensor is not there. Ends at a
/// power of two to calculate exactly.
inline plan::FanControlModePlan degreesAsPercent(std::optional<std::string> sourceSensorID = {}) {
    return curve({{0, 0}, {128, 128}}, std::move(sourceSensorID));
}

}  // namespace airflow::tests
