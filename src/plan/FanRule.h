// FanRule: a temperature that, high for long enough, overrides what fans would do.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/UUID.h"

namespace airflow::plan {

/// One fan, or every fan of the plan.
struct RuleFanTarget {
    std::optional<std::int64_t> fanID;  ///< absent: all

    bool operator==(const RuleFanTarget&) const = default;

    [[nodiscard]] static RuleFanTarget fan(std::int64_t fanID) { return {.fanID = fanID}; }
    [[nodiscard]] static RuleFanTarget all() { return {}; }

    static RuleFanTarget decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

struct FanRule {
    UUID id;                              ///< the evaluator keys latch and timer by it
    std::string name;                     ///< for people
    std::optional<std::string> sensorID;  ///< watched sensor; absent: the hottest one
    double thresholdCelsius = 0;          ///< fires strictly above
    /// A latched rule lets go below this, and in any case not before threshold - 0.5 °C.
    double releaseBelowCelsius = 0;
    double targetPercent = 0;  ///< forced while latched
    RuleFanTarget fanTarget;
    double dwellSeconds = 0;  ///< how long above the threshold before it latches
    bool enabled = false;

    bool operator==(const FanRule&) const = default;

    /// Below this a latched rule lets go, °C.
    [[nodiscard]] double releaseLevel() const;

    static FanRule decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
