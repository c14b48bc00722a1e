// What holds for the answers of every curve.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "plan/FanCurve.h"
#include "support/PlanGenerators.h"

namespace airflow::plan {

namespace {

struct Point {
    double celsius;
    double percent;
};

FanCurve curveOf(const std::vector<Point>& points) {
    FanCurve curve;
    for (const auto& [celsius, percent] : points) {
        curve.points.push_back({.id = {}, .celsius = celsius, .percent = percent});
    }
    return curve;
}

/// Temperatures and percentages as a person would choose them, in hundredths.
rc::Gen<double> temperatures() {
    return rc::gen::map(rc::gen::inRange(-5000, 15000), [](int value) { return value / 100.0; });
}

rc::Gen<double> percentages() {
    return rc::gen::map(rc::gen::inRange(-2000, 13000), [](int value) { return value / 100.0; });
}

rc::Gen<std::vector<Point>> points() {
    return airflow::tests::fewOf(
        rc::gen::map(rc::gen::pair(temperatures(), percentages()),
                     [](const auto& point) { return Point{point.first, point.second}; }));
}

}  // namespace

RC_GTEST_PROP(FanCurveProperties, theAnswerIsAlwaysBetweenZeroAndAHundred, ()) {
    const double percent = curveOf(*points()).percentAt(*temperatures());
    RC_ASSERT(percent >= 0);
    RC_ASSERT(percent <= 100);
}

RC_GTEST_PROP(FanCurveProperties, noFiniteCurveAnswersOutsideTheRange, (const FanCurve& curve)) {
    const double percent = curve.percentAt(*airflow::tests::finiteDoubles());
    RC_ASSERT(std::isnan(percent) || (percent >= 0 && percent <= 100));
}

RC_GTEST_PROP(FanCurveProperties, theOrderOfDistinctPointsDoesNotMatter, ()) {
    std::vector<Point> chosen = *points();
    std::set<double> seen;
    std::erase_if(chosen, [&](const Point& point) { return !seen.insert(point.celsius).second; });
    std::vector<Point> shuffled = chosen;
    for (std::size_t i = shuffled.size(); i > 1; --i) {
        std::swap(shuffled[i - 1], shuffled[*rc::gen::inRange<std::size_t>(0, i)]);
    }
    const double celsius = *temperatures();
    RC_ASSERT(curveOf(shuffled).percentAt(celsius) == curveOf(chosen).percentAt(celsius));
}

RC_GTEST_PROP(FanCurveProperties, aRisingCurveNeverFalls, ()) {
    std::vector<Point> rising = *points();
    std::vector<double> percents;
    for (const Point& point : rising) percents.push_back(point.percent);
    std::ranges::sort(percents);
    std::ranges::sort(rising, {}, &Point::celsius);
    for (std::size_t i = 0; i < rising.size(); ++i) rising[i].percent = percents[i];
    const auto [low, high] = std::minmax({*temperatures(), *temperatures()});
    const FanCurve curve = curveOf(rising);
    // A line's end may miss its point by the last bit.
    RC_ASSERT(curve.percentAt(low) <= curve.percentAt(high) + 1e-9);
}

RC_GTEST_PROP(FanCurveProperties, theAnswerLiesBetweenThoseOfTheNeighbouringPoints, ()) {
    std::vector<Point> sorted = *points();
    sorted.push_back({-60, *percentages()});  // a point on either side of every temperature
    sorted.push_back({160, *percentages()});
    std::ranges::sort(sorted, {}, &Point::celsius);
    const double celsius = *temperatures();
    const auto above = std::ranges::find_if(
        sorted, [celsius](const Point& point) { return point.celsius > celsius; });
    RC_PRE((above - 1)->celsius < celsius);
    const auto [low, high] = std::minmax(
        {std::clamp((above - 1)->percent, 0.0, 100.0), std::clamp(above->percent, 0.0, 100.0)});
    const double percent = curveOf(sorted).percentAt(celsius);
    RC_ASSERT(percent >= low - 1e-9);
    RC_ASSERT(percent <= high + 1e-9);
}

}  // namespace airflow::plan
