// Documents: plans as text of which a test names only what matters, and what is found in them.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "review/PlanReview.h"
#include "text/Text.h"

namespace airflow::review {

/// A plan with these fans and rules, each a list of JSON objects.
inline std::string planOf(const std::string& fans, const std::string& rules = {},
                          const std::string& tuning = {}) {
    constexpr const char* standard =
        R"("emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3)";
    return R"({"fans":[)" + fans + R"(],"rules":[)" + rules + R"(],"tuning":{)" +
           (tuning.empty() ? standard : tuning) + "}}";
}

inline std::string fanWith(const std::string& mode, const std::string& number = "0") {
    return R"({"fanID":)" + number + R"(,"mode":)" + mode + "}";
}

inline std::string percentMode(const std::string& percent) {
    return R"({"fixedPercent":{"_0":)" + percent + "}}";
}

inline std::string rpmMode(const std::string& rpm) {
    return R"({"fixedRPM":{"_0":)" + rpm + "}}";
}

constexpr const char* automaticMode = R"({"automatic":{}})";

using Points = std::vector<std::pair<double, double>>;

/// A curve through points of (°C, %); `more` are further members, each with a comma behind it.
inline std::string curveMode(const Points& points, const std::string& more = {}) {
    std::string text;
    for (const auto& [celsius, percent] : points) {
        text +=
            (text.empty() ? "" : ",") +
            (R"({"id":"E7A90C52-1D38-4F6B-A2C4-58B3D6E1F701","celsius":)" + text::plain(celsius)) +
            R"(,"percent":)" + text::plain(percent) + "}";
    }
    return R"({"curve":{"_0":{)" + more + R"("points":[)" + text +
           R"(],"interpolation":"linear"}}})";
}

/// A fan with which nothing is wrong.
inline std::string goodFan(const std::string& number = "0") {
    return fanWith(curveMode({{50, 5}, {90, 100}}), number);
}

struct RuleText {
    int id = 1;
    std::string sensor = {};  ///< empty: the hottest
    double above = 80;
    double releaseBelow = 70;
    double percent = 80;
    std::string fan = {};  ///< empty: all
    double dwell = 3;
    bool enabled = true;

    operator std::string() const {
        const std::string target = fan.empty() ? R"({"all":{}})" : R"({"fan":{"_0":)" + fan + "}}";
        const std::string watched = sensor.empty() ? "" : R"("sensorID":")" + sensor + R"(",)";
        return R"({"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C0)" + std::to_string(id) +
               R"(","name":"Hot",)" + watched + R"("thresholdCelsius":)" + text::plain(above) +
               R"(,"releaseBelowCelsius":)" + text::plain(releaseBelow) + R"(,"targetPercent":)" +
               text::plain(percent) + R"(,"fanTarget":)" + target + R"(,"dwellSeconds":)" +
               text::plain(dwell) + R"(,"enabled":)" + (enabled ? "true" : "false") + "}";
    }
};

using Found = std::vector<std::string>;

/// The identifier and the pointer of each finding, with a blank in between.
inline Found found(const std::string& document, const Machine* machine = nullptr) {
    Found result;
    for (const Finding& finding : reviewPlan(document, machine).findings) {
        result.push_back(std::string(finding.identifier()) + " " + finding.pointer);
    }
    return result;
}

inline Found foundInFan(const std::string& mode) {
    return found(planOf(fanWith(mode)));
}

inline Found foundInRule(const RuleText& rule) {
    return found(planOf(goodFan(), rule));
}

inline std::string reasonIn(const std::string& document, const Machine* machine = nullptr) {
    const auto findings = reviewPlan(document, machine).findings;
    return findings.empty() ? "" : findings.front().reason;
}

inline std::string adviceIn(const std::string& document, const Machine* machine = nullptr) {
    const auto findings = reviewPlan(document, machine).findings;
    return findings.empty() ? "" : findings.front().advice;
}

inline const Found nothing;

}  // namespace airflow::review
