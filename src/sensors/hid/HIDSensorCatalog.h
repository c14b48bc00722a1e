// HIDSensorCatalog: turns raw samples of HID services into named, plausible temperatures.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sensors/RawReading.h"
#include "sensors/TempSensor.h"

namespace airflow::sensors::HIDSensorCatalog {

/// A display name such as "CPU (tdie3)": `category` is the short name in front, and what is left of
/// `label` without "temp" and "PMU" (in any case) and without white space around it follows.
[[nodiscard]] std::string cleaned(std::string_view label, std::string_view category);

/// The temperatures that people are shown, in the order of `readings`.
///
/// Calibration channels, repeated labels, values that never move (unless the part is known for a
/// steady value) and values outside -40 to 150 °C are left out; so is a value that is not a number.
/// The SoC's die channels become one reading at the end, as hot as the hottest of them.
[[nodiscard]] std::vector<TempSensor> curate(const std::vector<RawReading>& readings);

}  // namespace airflow::sensors::HIDSensorCatalog
