// SensorCategory: what kind of part a temperature belongs to.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace airflow::sensors {

enum class SensorCategory : std::uint8_t { cpu, gpu, battery, ssd, sensor };

/// In declaration order, which is not the order that people are shown.
inline constexpr std::array allCategories{SensorCategory::cpu, SensorCategory::gpu,
                                          SensorCategory::battery, SensorCategory::ssd,
                                          SensorCategory::sensor};

/// The category's text, such as "Battery".
[[nodiscard]] std::string_view rawValue(SensorCategory category);
/// The inverse; exact, so that "cpu" is no category.
[[nodiscard]] std::optional<SensorCategory> categoryFromRawValue(std::string_view text);
/// The rank in lists for people, from 0: the SSD comes before the battery.
[[nodiscard]] int sortOrder(SensorCategory category);

}  // namespace airflow::sensors
