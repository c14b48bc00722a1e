#include "sensors/SensorSnapshot.h"

#include <algorithm>

namespace airflow::sensors {

const SensorSnapshot& SensorSnapshot::empty() {
    static const SensorSnapshot snapshot;
    return snapshot;
}

std::optional<TempSensor> SensorSnapshot::hottest() const {
    const auto found = std::ranges::max_element(temps, {}, &TempSensor::celsius);
    if (found == temps.end()) return std::nullopt;
    return *found;
}

}  // namespace airflow::sensors
