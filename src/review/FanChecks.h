// FanChecks: what a plan asks of each fan.
#pragma once

#include "plan/FanControlPlan.h"
#include "review/Report.h"

namespace airflow::review {

void checkFans(const plan::FanControlPlan& plan, Report& report);

}  // namespace airflow::review
