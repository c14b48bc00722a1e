#include "sensors/TempSensor.h"

namespace airflow::sensors {

std::string_view rawValue(SensorSource source) {
    return source == SensorSource::hid ? "HID" : "SMC";
}

std::optional<SensorSource> sourceFromRawValue(std::string_view text) {
    if (text == "HID") return SensorSource::hid;
    if (text == "SMC") return SensorSource::smc;
    return std::nullopt;
}

std::string TempSensor::id() const {
    std::string id(rawValue(source));
    id.reserve(id.size() + 1 + key.size());
    return id.append("-").append(key);
}

}  // namespace airflow::sensors
