// TempSensor: one temperature reading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sensors/SensorCategory.h"

namespace airflow::sensors {

/// Where a temperature came from.
enum class SensorSource : std::uint8_t { hid, smc };

/// "HID" or "SMC".
[[nodiscard]] std::string_view rawValue(SensorSource source);
/// The inverse; exact.
[[nodiscard]] std::optional<SensorSource> sourceFromRawValue(std::string_view text);

struct TempSensor {
    std::string key;     ///< SMC key or HID label: unique within its source only
    std::string name;    ///< for people; several sensors may share one
    double celsius = 0;  ///< °C
    SensorCategory category = SensorCategory::sensor;
    SensorSource source = SensorSource::hid;

    bool operator==(const TempSensor&) const = default;

    /// Source, hyphen, key, such as "SMC-TCMz": the name by which plans know a sensor.
    [[nodiscard]] std::string id() const;
};

}  // namespace airflow::sensors
