// The range in which a reading is believed to be a temperature of a running machine.
#pragma once

namespace airflow::sensors {

/// Whether `celsius` lies in -40 to 150 °C, bounds included. What is not a number is not plausible:
/// it would look like a known temperature to whoever counts them, and never be above any limit.
[[nodiscard]] constexpr bool isPlausibleTemperature(double celsius) {
    return celsius >= -40 && celsius <= 150;
}

}  // namespace airflow::sensors
