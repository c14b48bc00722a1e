#include "plan/ControlTuning.h"

namespace airflow::plan {

ControlTuning ControlTuning::decode(const json::Decoder& decoder) {
    return {.emaAlpha = decoder.required<double>("emaAlpha"),
            .hysteresisCelsius = decoder.required<double>("hysteresisCelsius"),
            .maxDeltaRPMPerTick = decoder.required<double>("maxDeltaRPMPerTick"),
            .minDwellSeconds = decoder.required<double>("minDwellSeconds")};
}

void ControlTuning::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("emaAlpha", emaAlpha);
        writer.member("hysteresisCelsius", hysteresisCelsius);
        writer.member("maxDeltaRPMPerTick", maxDeltaRPMPerTick);
        writer.member("minDwellSeconds", minDwellSeconds);
    });
}

}  // namespace airflow::plan
