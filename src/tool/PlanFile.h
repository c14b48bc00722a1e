// PlanFile: a plan document on disk.
#pragma once

#include <expected>
#include <string>

#include "plan/FanControlPlan.h"

namespace airflow::tool {

/// The plan in the file, or one line that says what is wrong with it, and where.
[[nodiscard]] std::expected<plan::FanControlPlan, std::string> readPlan(const std::string& path);

}  // namespace airflow::tool
