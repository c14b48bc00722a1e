#include "sensors/SensorCategory.h"

#include <algorithm>

namespace airflow::sensors {

std::string_view rawValue(SensorCategory category) {
    switch (category) {
        case SensorCategory::cpu: return "CPU";
        case SensorCategory::gpu: return "GPU";
        case SensorCategory::battery: return "Battery";
        case SensorCategory::ssd: return "SSD";
        case SensorCategory::sensor: break;
    }
    return "Sensor";
}

std::optional<SensorCategory> categoryFromRawValue(std::string_view text) {
    const auto found = std::ranges::find(allCategories, text, rawValue);
    if (found == allCategories.end()) return std::nullopt;
    return *found;
}

int sortOrder(SensorCategory category) {
    switch (category) {
        case SensorCategory::cpu: return 0;
        case SensorCategory::gpu: return 1;
        case SensorCategory::ssd: return 2;
        case SensorCategory::battery: return 3;
        case SensorCategory::sensor: break;
    }
    return 4;
}

}  // namespace airflow::sensors
