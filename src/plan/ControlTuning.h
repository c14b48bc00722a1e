// ControlTuning: how hard temperatures are smoothed and speeds are held back.
#pragma once

#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::plan {

/// The initial values are the standard tuning. They never stand in for a missing key of a document.
struct ControlTuning {
    double emaAlpha = 0.3;              ///< weight of the newest reading, usually in [0, 1]
    double hysteresisCelsius = 2.0;     ///< °C; carried for the client, nothing evaluates it
    double maxDeltaRPMPerTick = 400.0;  ///< RPM; largest step of a curve's target between ticks
    double minDwellSeconds = 3.0;       ///< seconds; carried for the client, nothing evaluates it

    bool operator==(const ControlTuning&) const = default;

    [[nodiscard]] static ControlTuning defaults() { return {}; }

    static ControlTuning decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
