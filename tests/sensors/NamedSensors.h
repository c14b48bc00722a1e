// NamedSensors: temperatures as the reader is expected to give them.
#pragma once

#include <string>
#include <utility>

#include "sensors/TempSensor.h"

namespace airflow::sensors {

inline TempSensor hidSensor(std::string key, std::string name, double celsius,
                            SensorCategory category) {
    return {.key = std::move(key),
            .name = std::move(name),
            .celsius = celsius,
            .category = category,
            .source = SensorSource::hid};
}

inline TempSensor smcSensor(std::string key, std::string name, double celsius,
                            SensorCategory category) {
    TempSensor sensor = hidSensor(std::move(key), std::move(name), celsius, category);
    sensor.source = SensorSource::smc;
    return sensor;
}

}  // namespace airflow::sensors
