#include "review/CurveChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

#include "control/ThermalCeiling.h"
#include "evaluation/FanStopPolicy.h"
#include "json/Places.h"
#include "review/PercentChecks.h"
#include "text/Text.h"

namespace airflow::review {

namespace {

using control::thermalCeiling;
using text::plain;

class CurveCheck {
public:
    CurveCheck(const plan::FanCurve& ownCurve, const std::string& ownPointer, Report& ownReport)
        : curve(ownCurve),
          pointer(json::pointerTo(ownPointer, "points")),
          report(ownReport),
          order(curve.points.size()) {
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::ranges::sort(order, {}, [this](std::size_t i) { return std::pair(at(i).celsius, i); });
    }

    void checkPoints() const {
        for (std::size_t i = 0; i < order.size(); ++i) {
            checkPercent(at(i).percent, member(i, "percent"), report);
        }
        if (!std::ranges::is_sorted(order)) {
            report.add(Subject::curveUnsorted, pointer,
                       "The points are not in the order of their temperatures; they are sorted "
                       "when the curve is evaluated.",
                       "List them from the coolest to the hottest.");
        }
        const auto counting = pointsThatCount();
        for (std::size_t i = 1; i < counting.size(); ++i) checkStep(counting[i - 1], counting[i]);
    }

    void checkReach(bool isCovered) const {
        const plan::CurvePoint& hottest = at(order.back());
        const bool isBeyond = hottest.celsius > thermalCeiling;
        if (isBeyond) addBeyond(order.back());
        const double highest = highestPercent();
        if (highest < evaluation::FanStopPolicy::resumePercent.value() && stopsTheFan()) {
            addNeverRestarts(highest);
        } else if (highest < 100 && !isBeyond && !isCovered) {
            report.add(Subject::curveNotFull, member(order.back(), "percent"),
                       fmt::format("The curve reaches {} % at most, and no rule reaches 100 %, "
                                   "before all fans are given back at {} °C.",
                                   plain(highest), plain(thermalCeiling)),
                       fmt::format("End the curve with 100 % below {} °C.", plain(thermalCeiling)));
        }
    }

private:
    const plan::CurvePoint& at(std::size_t i) const { return curve.points[i]; }
    std::string member(std::size_t i, std::string_view key) const {
        return json::pointerTo(json::pointerTo(pointer, i), key);
    }
    static double evaluated(const plan::CurvePoint& point) {
        return std::clamp(point.percent, 0.0, 100.0);
    }

    /// By temperature, and of those at one temperature the first and the last: no more count.
    std::vector<std::size_t> pointsThatCount() const {
        std::vector<std::size_t> counting;
        for (const std::size_t i : order) {
            const std::size_t count = counting.size();
            const bool replaces = count >= 2 && at(counting[count - 2]).celsius == at(i).celsius;
            if (replaces) counting.pop_back();
            counting.push_back(i);
        }
        return counting;
    }

    void checkStep(std::size_t cooler, std::size_t hotter) const {
        const double before = evaluated(at(cooler));
        const double after = evaluated(at(hotter));
        if (after < before) {
            report.add(Subject::curveFalls, member(hotter, "percent"),
                       fmt::format("The curve falls from {} % to {} % as the temperature rises to "
                                   "{} °C.",
                                   plain(before), plain(after), plain(at(hotter).celsius)),
                       fmt::format("Write {} % or more here.", plain(before)));
        }
        if (at(cooler).celsius != at(hotter).celsius) return;
        report.add(Subject::curveRepeatedTemperature, member(hotter, "celsius"),
                   fmt::format(
                       "Two points or more stand at {} °C. The curve leads to the first of them in "
                       "the document ({} %) and goes on from the last ({} %).",
                       plain(at(hotter).celsius), plain(before), plain(after)),
                   "Keep one of them, or move one to another temperature.");
    }

    /// What the curve asks for at most while the plan is in force.
    double highestPercent() const {
        double highest = curve.percentAt(thermalCeiling);
        for (const plan::CurvePoint& point : curve.points) {
            if (point.celsius <= thermalCeiling) highest = std::max(highest, evaluated(point));
        }
        return highest;
    }

    bool stopsTheFan() const {
        return std::ranges::any_of(curve.points,
                                   [](const plan::CurvePoint& point) {
                                       return point.celsius < thermalCeiling && point.percent <= 0;
                                   }) ||
               evaluated(at(order.front())) <= 0;
    }

    void addBeyond(std::size_t hottest) const {
        report.add(Subject::curveBeyondCeiling, member(hottest, "celsius"),
                   fmt::format("The curve ends at {} °C, but all fans are given back at {} °C, "
                               "where it asks for {} %.",
                               plain(at(hottest).celsius), plain(thermalCeiling),
                               plain(curve.percentAt(thermalCeiling))),
                   fmt::format("End the curve below {} °C.", plain(thermalCeiling)));
    }

    void addNeverRestarts(double highest) const {
        report.add(Subject::curveNeverRestarts, pointer,
                   fmt::format("The curve stops the fan at 0 % and reaches {} % at most below {} "
                               "°C: a stopped fan starts again at {} %.",
                               plain(highest), plain(thermalCeiling),
                               plain(evaluation::FanStopPolicy::resumePercent.value())),
                   fmt::format("Let the curve rise to 100 % below {} °C.", plain(thermalCeiling)));
    }

    const plan::FanCurve& curve;
    std::string pointer;  ///< to the points
    Report& report;
    std::vector<std::size_t> order;  ///< of the points, by temperature
};

}  // namespace

void checkCurve(const plan::FanCurve& curve, bool isCovered, const std::string& pointer,
                Report& report) {
    if (curve.points.empty()) {
        report.add(Subject::curveWithoutPoints, json::pointerTo(pointer, "points"),
                   "A curve without points asks for 0 % at any temperature: the fan is stopped.",
                   "Give the curve points, or leave the fan to the firmware: "
                   "{\"automatic\": {}}.");
        return;
    }
    const CurveCheck check(curve, pointer, report);
    check.checkPoints();
    check.checkReach(isCovered);
    if (curve.interpolation == plan::CurveInterpolation::linear) return;
    report.add(Subject::unreadValue, json::pointerTo(pointer, "interpolation"),
               "Nothing reads the interpolation: every curve is evaluated as straight lines.",
               "Write \"linear\".");
}

}  // namespace airflow::review
