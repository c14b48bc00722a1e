// SensorNaming: which SMC temperature keys people are shown, and under which name.
#pragma once

#include <optional>
#include <string_view>

#include "sensors/SensorCategory.h"

namespace airflow::sensors {

/// What people are shown for a sensor. Several sensors may share one name.
struct FriendlyName {
    std::string_view name;  ///< a constant of the program
    SensorCategory category = SensorCategory::sensor;

    bool operator==(const FriendlyName&) const = default;
};

namespace SensorNaming {

/// Nothing for a key that people are not shown. Case-sensitive, as the SMC's keys are.
[[nodiscard]] std::optional<FriendlyName> friendlyName(std::string_view key);

}  // namespace SensorNaming

}  // namespace airflow::sensors
