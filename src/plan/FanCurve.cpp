#include "plan/FanCurve.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <string_view>

namespace airflow::plan {

namespace {

double interpolate(const CurvePoint& a, const CurvePoint& b, double celsius) {
    if (a.celsius == b.celsius) return b.percent;
    return a.percent + (celsius - a.celsius) / (b.celsius - a.celsius) * (b.percent - a.percent);
}

/// An order of all points, those among them whose temperature is not a number.
std::weak_ordering byTemperature(const CurvePoint& a, const CurvePoint& b) {
    return std::weak_order(a.celsius, b.celsius);
}

bool isCooler(const CurvePoint& a, const CurvePoint& b) {
    return byTemperature(a, b) < 0;
}

/// The points by temperature; equal temperatures keep their order in the document.
std::vector<CurvePoint> sorted(const std::vector<CurvePoint>& points) {
    std::vector<const CurvePoint*> order;
    for (const CurvePoint& point : points) order.push_back(&point);
    std::ranges::sort(order, [](const CurvePoint* a, const CurvePoint* b) {
        const auto temperatures = byTemperature(*a, *b);
        return temperatures != 0 ? temperatures < 0 : a < b;
    });
    std::vector<CurvePoint> result;
    for (const CurvePoint* point : order) result.push_back(*point);
    return result;
}

/// Looks `celsius` up in points that are sorted and not empty.
double lookUp(const std::vector<CurvePoint>& points, double celsius) {
    const CurvePoint& first = points.front();
    const CurvePoint& last = points.back();
    if (first.celsius >= celsius) return first.percent;
    if (last.celsius <= celsius) return last.percent;
    for (std::size_t i = 1; i < points.size(); ++i) {
        if (points[i - 1].celsius <= celsius && points[i].celsius >= celsius) {
            return interpolate(points[i - 1], points[i], celsius);
        }
    }
    return interpolate(first, last, celsius);  // a temperature that is not a number
}

CurveInterpolation decodeInterpolation(const json::Decoder& curve) {
    auto interpolation = CurveInterpolation::linear;
    curve.member("interpolation", [&interpolation](const json::Decoder& decoder) {
        const std::string text = decoder.text();
        if (text == "monotone") interpolation = CurveInterpolation::monotone;
        else if (text != "linear") decoder.fail("Expected \"linear\" or \"monotone\".");
    });
    return interpolation;
}

}  // namespace

double FanCurve::percentAt(double celsius) const {
    if (points.empty()) return 0;
    const bool isSorted = std::ranges::is_sorted(points, isCooler);
    const double percent = isSorted ? lookUp(points, celsius) : lookUp(sorted(points), celsius);
    if (percent <= 0) return 0;
    return percent > 100 ? 100 : percent;
}

CurvePoint CurvePoint::decode(const json::Decoder& decoder) {
    return {.id = decoder.required<UUID>("id"),
            .celsius = decoder.required<double>("celsius"),
            .percent = decoder.required<double>("percent")};
}

void CurvePoint::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("id", id);
        writer.member("celsius", celsius);
        writer.member("percent", percent);
    });
}

FanCurve FanCurve::decode(const json::Decoder& decoder) {
    return {.sourceSensorID = decoder.optional<std::string>("sourceSensorID"),
            .points = decoder.required<std::vector<CurvePoint>>("points"),
            .interpolation = decodeInterpolation(decoder)};
}

void FanCurve::encode(json::Writer& writer) const {
    const bool monotone = interpolation == CurveInterpolation::monotone;
    writer.object([&] {
        writer.member("sourceSensorID", sourceSensorID);
        writer.member("points", points);
        writer.member("interpolation", monotone ? "monotone" : "linear");
    });
}

}  // namespace airflow::plan
