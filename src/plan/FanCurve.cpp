#include "plan/FanCurve.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>

namespace airflow::plan {

namespace {

/// By temperature; equal temperatures keep their order in the document, in which the points lie.
/// What is not a number comes last, because a sort needs an order of everything.
bool isBefore(const CurvePoint* a, const CurvePoint* b) {
    if (std::isnan(a->celsius) != std::isnan(b->celsius)) return std::isnan(b->celsius);
    if (a->celsius < b->celsius || b->celsius < a->celsius) return a->celsius < b->celsius;
    return a < b;
}

bool isSorted(const std::vector<CurvePoint>& points) {
    return std::ranges::is_sorted(
        points, [](const CurvePoint& a, const CurvePoint& b) { return isBefore(&a, &b); });
}

std::vector<CurvePoint> sorted(const std::vector<CurvePoint>& points) {
    std::vector<const CurvePoint*> order;
    for (const CurvePoint& point : points) order.push_back(&point);
    std::ranges::sort(order, isBefore);
    std::vector<CurvePoint> result;
    for (const CurvePoint* point : order) result.push_back(*point);
    return result;
}

struct Neighbours {
    const CurvePoint& from;
    const CurvePoint& to;
};

double interpolate(const Neighbours& points, double celsius) {
    const auto& [a, b] = points;
    if (a.celsius == b.celsius) return b.percent;
    return a.percent + (celsius - a.celsius) / (b.celsius - a.celsius) * (b.percent - a.percent);
}

/// Looks `celsius` up in points that are sorted and not empty.
Neighbours lookUp(const std::vector<CurvePoint>& points, double celsius) {
    const CurvePoint& first = points.front();
    const CurvePoint& last = points.back();
    if (first.celsius >= celsius) return {first, first};
    if (last.celsius <= celsius) return {last, last};
    for (std::size_t i = 1; i < points.size(); ++i) {
        if (points[i - 1].celsius <= celsius && points[i].celsius >= celsius) {
            return {points[i - 1], points[i]};
        }
    }
    return {first, last};  // something is not a number
}

CurveInterpolation decodeInterpolation(const json::Decoder& curve) {
    auto interpolation = CurveInterpolation::linear;
    curve.member("interpolation", [&interpolation](const json::Decoder& decoder) {
        const std::string text = decoder.text();
        if (text == "monotone")
            interpolation = CurveInterpolation::monotone;
        else if (text != "linear")
            decoder.fail("Expected \"linear\" or \"monotone\".");
    });
    return interpolation;
}

}  // namespace

double FanCurve::percentAt(double celsius) const {
    if (points.empty()) return 0;
    double percent = 0;
    if (isSorted(points)) {
        percent = interpolate(lookUp(points, celsius), celsius);
    } else {
        const auto ordered = sorted(points);
        percent = interpolate(lookUp(ordered, celsius), celsius);
    }
    if (percent <= 0) return 0;
    return percent > 100 ? 100 : percent;
}

std::optional<CurveSegment> FanCurve::segmentAt(double celsius) const {
    if (points.empty()) return std::nullopt;
    const auto ordered = sorted(points);
    const auto [from, to] = lookUp(ordered, celsius);
    return CurveSegment{.from = from, .to = to};
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
