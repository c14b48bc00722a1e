// ThermalCeiling: the temperature at which no plan controls fans any more.
#pragma once

namespace airflow::control {

/// °C; as soon as any sensor reads as much, all fans are given back.
inline constexpr double thermalCeiling = 95.0;

}  // namespace airflow::control
