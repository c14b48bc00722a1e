// UnitLiterals: numbers with their unit in tests, as in `setManual(0_fan, 3000_rpm)`.
#pragma once

#include <cstdint>

#include "numbers/Units.h"

namespace airflow::tests::literals {

consteval numbers::FanIndex operator""_fan(unsigned long long number) {
    return numbers::FanIndex(static_cast<std::int64_t>(number));
}
consteval numbers::WholeRPM operator""_rpm(unsigned long long number) {
    return numbers::WholeRPM(static_cast<std::int64_t>(number));
}
consteval numbers::Percent operator""_percent(unsigned long long number) {
    return numbers::Percent(static_cast<double>(number));
}

}  // namespace airflow::tests::literals
