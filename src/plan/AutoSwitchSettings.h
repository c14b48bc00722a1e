// AutoSwitchSettings: which preset the client chooses on battery and on mains power.
#pragma once

#include <optional>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/UUID.h"

namespace airflow::plan {

struct AutoSwitchSettings {
    bool enabled = false;
    std::optional<UUID> onBatteryPresetID;
    std::optional<UUID> onACPresetID;

    bool operator==(const AutoSwitchSettings&) const = default;

    [[nodiscard]] static AutoSwitchSettings off() { return {}; }

    static AutoSwitchSettings decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
