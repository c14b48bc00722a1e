// RawReading: what sampling one HID temperature service gave.
#pragma once

#include <string>
#include <vector>

namespace airflow::sensors {

struct RawReading {
    std::string label;            ///< the service's "Product", UTF-8
    std::vector<double> samples;  ///< °C, in round order; a round without an event left none

    bool operator==(const RawReading&) const = default;

    /// The mean of the samples, °C; 0 without any.
    [[nodiscard]] double celsius() const;
    /// Whether no sample differs from the first: a channel that is wired to nothing.
    [[nodiscard]] bool isConstant() const;
};

}  // namespace airflow::sensors
