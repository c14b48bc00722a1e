#include "review/SensorChecks.h"

#include <fmt/format.h>

#include <utility>

#include "sensors/TempSensor.h"

namespace airflow::review {

bool hasSource(const std::string& sensorID) {
    const std::size_t hyphen = sensorID.find('-');
    return hyphen != std::string::npos &&
           sensors::sourceFromRawValue(sensorID.substr(0, hyphen)).has_value();
}

void checkSource(const std::optional<std::string>& sensorID, std::string pointer, Report& report) {
    if (!sensorID || hasSource(*sensorID)) return;
    report.add(Subject::unknownSensorSource, std::move(pointer),
               fmt::format("No machine has a sensor \"{}\": an id is \"HID-\" or \"SMC-\" and the "
                           "sensor's key.",
                           *sensorID),
               "Write an id as the command airflow sensors lists them, such as SMC-TCMz.");
}

}  // namespace airflow::review
