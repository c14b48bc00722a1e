// FanCurve: which share of a fan's range a temperature asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/UUID.h"

namespace airflow::plan {

struct CurvePoint {
    UUID id;             ///< the client edits points by it
    double celsius = 0;  ///< °C
    double percent = 0;  ///< any number; what percentAt answers is kept in [0, 100]

    bool operator==(const CurvePoint&) const = default;

    static CurvePoint decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

/// Two neighbours, between which a curve is a straight line; the same point twice before the
/// coolest point and behind the hottest.
struct CurveSegment {
    CurvePoint from;
    CurvePoint to;

    bool operator==(const CurveSegment&) const = default;
};

/// Carried and preserved for the client; both are evaluated as straight lines between points.
enum class CurveInterpolation : std::uint8_t { linear, monotone };

struct FanCurve {
    /// Id of the sensor whose smoothed temperature drives the curve; absent: the hottest one.
    std::optional<std::string> sourceSensorID;
    std::vector<CurvePoint> points;  ///< in any order
    CurveInterpolation interpolation = CurveInterpolation::linear;

    bool operator==(const FanCurve&) const = default;

    /// The percentage at a temperature in °C, in [0, 100]; 0 without points. Flat before the
    /// coolest point and after the hottest. Not a number where the arithmetic has no answer (a
    /// temperature that is not a number, points too far apart for a double): no request at all.
    /// A point whose temperature is not a number counts as the hottest; documents hold none.
    [[nodiscard]] double percentAt(double celsius) const;
    /// Where percentAt() looks the temperature up; nothing without points.
    [[nodiscard]] std::optional<CurveSegment> segmentAt(double celsius) const;

    static FanCurve decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
