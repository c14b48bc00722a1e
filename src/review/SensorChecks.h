// SensorChecks: whether a sensor's id is one.
#pragma once

#include <optional>
#include <string>

#include "review/Report.h"

namespace airflow::review {

/// Whether the id begins with a source and a hyphen, as every sensor's does.
[[nodiscard]] bool hasSource(const std::string& sensorID);

void checkSource(const std::optional<std::string>& sensorID, std::string pointer, Report& report);

}  // namespace airflow::review
