// PlanSummary: a plan in the words of a person.
#pragma once

#include <string>

#include "plan/FanControlPlan.h"

namespace airflow::tool {

/// Some lines, each indented by two blanks: fans and what each does, rules in priority order,
/// tuning.
[[nodiscard]] std::string summarise(const plan::FanControlPlan& plan);

}  // namespace airflow::tool
