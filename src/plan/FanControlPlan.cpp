#include "plan/FanControlPlan.h"

namespace airflow::plan {

FanPlan FanPlan::decode(const json::Decoder& decoder) {
    return {.fanID = decoder.required<std::int64_t>("fanID"),
            .mode = decoder.required<FanControlModePlan>("mode")};
}

void FanPlan::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("fanID", fanID);
        writer.member("mode", mode);
    });
}

const FanControlPlan& FanControlPlan::allAutomatic() {
    // Never destroyed: tasks use it until the process is gone.
    static const auto& plan = *new const FanControlPlan;
    return plan;
}

FanControlPlan FanControlPlan::decode(const json::Decoder& decoder) {
    return {.fans = decoder.required<std::vector<FanPlan>>("fans"),
            .rules = decoder.required<std::vector<FanRule>>("rules"),
            .tuning = decoder.required<ControlTuning>("tuning")};
}

void FanControlPlan::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("fans", fans);
        writer.member("rules", rules);
        writer.member("tuning", tuning);
    });
}

}  // namespace airflow::plan
