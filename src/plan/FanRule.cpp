#include "plan/FanRule.h"

#include <algorithm>

namespace airflow::plan {

RuleFanTarget RuleFanTarget::decode(const json::Decoder& decoder) {
    const auto name = decoder.soleCase({"fan", "all"});
    if (!name) return {};
    RuleFanTarget target;
    decoder.member(*name, [&](const json::Decoder& payload) {
        if (*name == "fan")
            target = fan(payload.required<std::int64_t>("_0"));
        else
            payload.anyObject();
    });
    return target;
}

void RuleFanTarget::encode(json::Writer& writer) const {
    if (!fanID) return writer.emptyCase("all");
    writer.object([&] { writer.objectMember("fan", [&] { writer.member("_0", *fanID); }); });
}

double FanRule::releaseLevel() const {
    // Half a degree below the threshold at least: a rule must not flutter around it.
    return std::min(thresholdCelsius - 0.5, releaseBelowCelsius);
}

FanRule FanRule::decode(const json::Decoder& decoder) {
    return {.id = decoder.required<UUID>("id"),
            .name = decoder.required<std::string>("name"),
            .sensorID = decoder.optional<std::string>("sensorID"),
            .thresholdCelsius = decoder.required<double>("thresholdCelsius"),
            .releaseBelowCelsius = decoder.required<double>("releaseBelowCelsius"),
            .targetPercent = decoder.required<double>("targetPercent"),
            .fanTarget = decoder.required<RuleFanTarget>("fanTarget"),
            .dwellSeconds = decoder.required<double>("dwellSeconds"),
            .enabled = decoder.required<bool>("enabled")};
}

void FanRule::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("id", id);
        writer.member("name", name);
        writer.member("sensorID", sensorID);
        writer.member("thresholdCelsius", thresholdCelsius);
        writer.member("releaseBelowCelsius", releaseBelowCelsius);
        writer.member("targetPercent", targetPercent);
        writer.member("fanTarget", fanTarget);
        writer.member("dwellSeconds", dwellSeconds);
        writer.member("enabled", enabled);
    });
}

}  // namespace airflow::plan
