#include "plan/FanPreset.h"

namespace airflow::plan {

FanPreset FanPreset::decode(const json::Decoder& decoder) {
    return {.id = decoder.required<UUID>("id"),
            .name = decoder.required<std::string>("name"),
            .isBuiltIn = decoder.required<bool>("isBuiltIn"),
            .plan = decoder.required<FanControlPlan>("plan")};
}

void FanPreset::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("id", id);
        writer.member("name", name);
        writer.member("isBuiltIn", isBuiltIn);
        writer.member("plan", plan);
    });
}

}  // namespace airflow::plan
