// Any bytes as a plan document. What is accepted survives being written, and whatever the machine
// measures, a fan is never told anything that is no speed of it. A review of it points at its
// values.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "concurrency/Date.h"
#include "concurrency/Require.h"
#include "evaluation/FanHoldPlanner.h"
#include "evaluation/PlanEvaluator.h"
#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Places.h"
#include "json/Writer.h"
#include "plan/AutoSwitchSettings.h"
#include "plan/FanControlPlan.h"
#include "plan/FanPreset.h"
#include "review/PlanReview.h"

namespace airflow::fuzz {
namespace {

using concurrency::require;

/// The record in `text`, if it is one, and its way through another text.
template <typename Record>
std::optional<Record> decoded(std::string_view text) {
    auto record = json::decode<Record>(text);
    if (!record) {
        require(!record.error().description.empty(), "a document is refused with a reason");
        return std::nullopt;
    }
    const auto written = json::encode(*record);
    require(written.has_value(), "what was read can be written");
    const auto again = json::decode<Record>(*written);
    require(again.has_value(), "what was written can be read");
    require(*again == *record, "what was written says what was read");
    require(json::encode(*again) == *written, "equal records are written equally");
    return std::move(*record);
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr std::array<double, 12> oddTemperatures{
    50, 99.9, 0, -1e308, 1e308, 5e-324, infinity, 60, notANumber, -infinity, 30, 30};
/// Seconds from one tick to the next: usual ones, none, and a wall clock that jumps.
constexpr std::array<double, 12> oddSteps{1.5, 1.5, 20, 0, 1.5, -3600, 5, 1e12, 1.5, 20, 1.5, 20};

bool isInPercent(double number) {
    return std::isnan(number) || (number >= 0 && number <= 100);
}

void checkCurves(const plan::FanControlPlan& plan) {
    for (const plan::FanPlan& each : plan.fans) {
        const auto* curve = std::get_if<plan::FanCurve>(&each.mode.mode);
        if (!curve) continue;
        for (const double celsius : oddTemperatures) {
            require(isInPercent(curve->percentAt(celsius)), "a curve asks for 0 to 100 percent");
        }
        for (const plan::CurvePoint& point : curve->points) {
            const double percent = curve->percentAt(point.celsius);
            require(percent >= 0 && percent <= 100, "a curve knows its own points");
        }
    }
}

/// The limits of these fans are as a broken SMC could give them, too.
std::vector<sensors::Fan> fansOf(const plan::FanControlPlan& plan) {
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    constexpr std::array<std::array<std::int64_t, 2>, 5> limits{
        {{1200, 6000}, {0, 0}, {least, most}, {6000, 1200}, {-500, 90}}};
    std::vector<sensors::Fan> fans;
    for (const auto& [low, high] : limits) {
        const std::size_t at = fans.size();
        const auto id = at < plan.fans.size() ? plan.fans[at].fanID : static_cast<std::int64_t>(at);
        fans.push_back({.id = id, .name = {}, .minRPM = low, .maxRPM = high, .mode = {}});
    }
    return fans;
}

/// The first sensors that the plan names, and one that it may not know.
std::vector<sensors::TempSensor> sensorsOf(const plan::FanControlPlan& plan) {
    std::vector<sensors::TempSensor> temps{{.key = "TCMz", .name = "CPU", .celsius = 0}};
    const auto add = [&temps](const std::optional<std::string>& id) {
        const bool isSMC = id && id->starts_with("SMC-");
        if (temps.size() == 4 || !(isSMC || (id && id->starts_with("HID-")))) return;
        temps.push_back(
            {.key = id->substr(4),
             .name = {},
             .source = isSMC ? sensors::SensorSource::smc : sensors::SensorSource::hid});
    };
    for (const plan::FanRule& rule : plan.rules) add(rule.sensorID);
    for (const plan::FanPlan& each : plan.fans) {
        if (const auto* curve = std::get_if<plan::FanCurve>(&each.mode.mode)) {
            add(curve->sourceSensorID);
        }
    }
    return temps;
}

void checkTarget(const sensors::Fan& fan, double rpm) {
    const auto low = static_cast<double>(fan.minRPM);
    const auto high = static_cast<double>(fan.maxRPM);
    if (low <= high)
        require(rpm >= low && rpm <= high, "a target lies within the fan's limits");
    else
        require(rpm == high, "the highest speed wins over a lowest one above it");
}

void check(const std::map<std::int64_t, evaluation::FanDecision>& decisions,
           const std::vector<sensors::Fan>& fans, std::set<std::int64_t>& claimed) {
    for (const auto& [id, decision] : decisions) {
        const auto fan = std::ranges::find(fans, id, &sensors::Fan::id);
        require(fan != fans.end(), "only fans of the machine are decided about");
        if (const auto* target = std::get_if<evaluation::Target>(&decision)) {
            checkTarget(*fan, target->rpm);
        }
    }
    const auto actions = evaluation::FanHoldPlanner::actions(decisions, claimed);
    for (const auto& [id, rpm] : actions.targets) {
        require(std::isfinite(rpm), "only speeds are written");
        require(decisions.contains(id), "only fans that were decided about get a target");
    }
    for (const std::int64_t id : actions.toClaim) {
        require(claimed.insert(id).second, "a fan that is held is not claimed again");
    }
    for (const std::int64_t id : actions.toRelease) {
        require(claimed.erase(id) == 1, "a fan that is not held is not released");
    }
    require(actions.targets.size() == claimed.size(), "a fan is held while it has a target");
}

void evaluate(const plan::FanControlPlan& plan) {
    evaluation::PlanEvaluator evaluator;
    std::set<std::int64_t> claimed;
    const std::vector<sensors::Fan> fans = fansOf(plan);
    sensors::SensorSnapshot snapshot{.fans = fans, .temps = sensorsOf(plan)};
    concurrency::Date now{};
    for (std::size_t tick = 0; tick < oddSteps.size(); ++tick) {
        now += concurrency::Seconds(oddSteps[tick]);
        for (std::size_t i = 0; i < snapshot.temps.size(); ++i) {
            snapshot.temps[i].celsius = oddTemperatures[(tick + i) % oddTemperatures.size()];
        }
        check(evaluator.evaluate(plan, snapshot, now), fans, claimed);
        if (tick == 8) snapshot.temps.clear();
    }
}

void checkReview(std::string_view text, bool isPlan) {
    const auto review = review::reviewPlan(text);
    require(review.plan.has_value() == isPlan, "a plan is one for its reviewer, too");
    require(isPlan || review.findings.size() == 1, "one reason is why a document is no plan");
    json::Document document;
    if (!document.parse(text)) return;
    json::Places places(document, text);
    for (const review::Finding& finding : review.findings) {
        require(places.find(finding.pointer).has_value(), "a finding points at a value");
        require(finding.position.has_value(), "a finding has a place");
    }
}

}  // namespace
}  // namespace airflow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace airflow;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    (void)fuzz::decoded<plan::FanPreset>(text);
    (void)fuzz::decoded<plan::AutoSwitchSettings>(text);
    const auto plan = fuzz::decoded<plan::FanControlPlan>(text);
    fuzz::checkReview(text, plan.has_value());
    if (plan) {
        fuzz::checkCurves(*plan);
        fuzz::evaluate(*plan);
    }
    return 0;
}
