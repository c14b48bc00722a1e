// EvaluationRecord: how the decisions of one evaluation came about, as the evaluator wrote it down.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Date.h"
#include "evaluation/FanDecision.h"
#include "plan/FanCurve.h"

namespace airflow::evaluation {

/// What smoothing made of a reading.
struct SensorRecord {
    double raw = 0;                  ///< °C, as read
    std::optional<double> before{};  ///< smoothed °C of the evaluation before; absent: a new sensor
    double smoothed = 0;             ///< °C
};

/// A smoothed temperature that something followed.
struct TemperatureRecord {
    std::string sensorID;  ///< of the sensor named by the plan, or of the hottest one
    double celsius = 0;    ///< smoothed, °C

    bool operator==(const TemperatureRecord&) const = default;
};

/// Where a rule of the plan stands after the evaluation.
struct RuleRecord {
    enum class Phase : std::uint8_t {
        disabled,
        idle,     ///< not above its threshold, or its sensor is missing
        waiting,  ///< above its threshold, not yet for its dwell time
        latched,  ///< overrides
    };

    Phase phase = Phase::disabled;
    bool wasLatched = false;                     ///< before the evaluation
    std::optional<TemperatureRecord> watched{};  ///< absent: disabled, or no such sensor
    std::optional<concurrency::Date> since{};    ///< rose above its threshold; kept while latched
};

/// Each step from what a fan was asked for to its decision. A step that was not taken is absent.
struct FanRecord {
    std::int64_t minRPM = 0;  ///< of the fan, RPM
    std::int64_t maxRPM = 0;
    std::vector<std::size_t> rules{};  ///< that target it and are latched, by index; the first won
    std::optional<TemperatureRecord> temperature{};  ///< that drives its curve
    std::optional<plan::CurveSegment> segment{};     ///< of the curve, at that temperature
    std::optional<double> percent{};                 ///< asked for, % of its range
    std::optional<concurrency::Date> zeroSince{};    ///< a request of 0 % since
    std::optional<concurrency::Date> resumeSince{};  ///< stopped; a request that starts it since
    bool isStopped = false;
    std::optional<double> wantedRPM{};   ///< before the limits, RPM
    std::optional<double> lastRPM{};     ///< target of the evaluation before, which limits a curve
    std::optional<double> limitedRPM{};  ///< within maxDeltaRPMPerTick of the last one, RPM
    FanDecision decision = ReleaseToAuto{};
};

struct EvaluationRecord {
    concurrency::Date time = concurrency::distantPast;
    std::map<std::string, SensorRecord, std::less<>> sensors{};  ///< by sensor id
    std::optional<TemperatureRecord> hottest{};                  ///< of the smoothed temperatures
    std::vector<RuleRecord> rules{};                             ///< as many as the plan has
    std::map<std::int64_t, FanRecord> fans{};  ///< planned ones that the snapshot has, by index
};

}  // namespace airflow::evaluation
