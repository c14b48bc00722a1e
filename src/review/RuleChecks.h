// RuleChecks: whether rules can fire, and what each does to the others.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "plan/FanControlPlan.h"
#include "review/Report.h"

namespace airflow::review {

/// Whether a rule forces this fan to 100 % below the ceiling, by the hottest sensor or by this one.
[[nodiscard]] bool isDrivenToFullSpeed(std::int64_t fanID,
                                       const std::optional<std::string>& sensorID,
                                       const plan::FanControlPlan& plan);

void checkRules(const plan::FanControlPlan& plan, Report& report);

}  // namespace airflow::review
