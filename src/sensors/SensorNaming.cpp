#include "sensors/SensorNaming.h"

#include <array>

namespace airflow::sensors {

namespace {

struct Row {
    std::string_view key;
    FriendlyName answer;
};

constexpr std::array exact{
    Row{"TCHP", {"CPU", SensorCategory::cpu}},
    Row{"TCMb", {"CPU (cluster)", SensorCategory::cpu}},
    Row{"TCMz", {"CPU (cluster)", SensorCategory::cpu}},
};

constexpr std::array prefixes{
    Row{"TB", {"Battery", SensorCategory::battery}},
    Row{"TG", {"GPU", SensorCategory::gpu}},
    Row{"TD", {"SSD/Board", SensorCategory::ssd}},
};

}  // namespace

std::optional<FriendlyName> SensorNaming::friendlyName(std::string_view key) {
    for (const Row& row : exact) {
        if (key == row.key) return row.answer;
    }
    for (const Row& row : prefixes) {
        if (key.starts_with(row.key)) return row.answer;
    }
    return std::nullopt;
}

}  // namespace airflow::sensors
