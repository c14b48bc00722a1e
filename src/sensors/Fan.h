// Fan: one fan as last read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace airflow::sensors {

struct Fan {
    std::int64_t id = 0;  ///< zero-based, as the SMC numbers fans; the fan's identity
    std::string name;     ///< for people
    std::int64_t currentRPM = 0;
    std::int64_t minRPM = 0;
    std::int64_t maxRPM = 0;
    /// The raw value of the fan's mode key; absent where the machine has no readable one.
    std::optional<std::int64_t> mode;

    bool operator==(const Fan&) const = default;
};

}  // namespace airflow::sensors
