// MachineChecks: whether a machine has what a plan names.
#pragma once

#include "plan/FanControlPlan.h"
#include "review/Machine.h"
#include "review/Report.h"

namespace airflow::review {

void checkMachine(const plan::FanControlPlan& plan, const Machine& machine, Report& report);

}  // namespace airflow::review
