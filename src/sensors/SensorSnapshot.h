// SensorSnapshot: what one read of the machine yields.
#pragma once

#include <optional>
#include <vector>

#include "concurrency/Date.h"
#include "sensors/Fan.h"
#include "sensors/TempSensor.h"

namespace airflow::sensors {

struct SensorSnapshot {
    std::vector<Fan> fans;  ///< in index order
    std::vector<TempSensor> temps;
    concurrency::Date timestamp = concurrency::distantPast;  ///< when it was taken

    bool operator==(const SensorSnapshot&) const = default;

    /// Nothing, taken in the distant past.
    [[nodiscard]] static const SensorSnapshot& empty();

    /// The hottest reading, the first of equals; nothing without readings. A reading that is not a
    /// number is never hotter than another, so it is the answer only when it comes first.
    [[nodiscard]] std::optional<TempSensor> hottest() const;
};

}  // namespace airflow::sensors
