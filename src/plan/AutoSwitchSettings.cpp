#include "plan/AutoSwitchSettings.h"

namespace airflow::plan {

AutoSwitchSettings AutoSwitchSettings::decode(const json::Decoder& decoder) {
    return {.enabled = decoder.required<bool>("enabled"),
            .onBatteryPresetID = decoder.optional<UUID>("onBatteryPresetID"),
            .onACPresetID = decoder.optional<UUID>("onACPresetID")};
}

void AutoSwitchSettings::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("enabled", enabled);
        writer.member("onBatteryPresetID", onBatteryPresetID);
        writer.member("onACPresetID", onACPresetID);
    });
}

}  // namespace airflow::plan
