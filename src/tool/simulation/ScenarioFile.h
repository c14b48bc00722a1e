// ScenarioFile: a scenario on disk, with the plans that lie beside it.
#pragma once

#include <expected>
#include <string>

#include "simulation/scenario/Scenario.h"

namespace airflow::tool {

/// The scenario, or one line that says what is wrong with it, and where.
[[nodiscard]] std::expected<simulation::Scenario, std::string> readScenario(
    const std::string& path);

}  // namespace airflow::tool
