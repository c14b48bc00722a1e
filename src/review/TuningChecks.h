// TuningChecks: smoothing, limits, and what nothing reads.
#pragma once

#include "plan/ControlTuning.h"
#include "review/Report.h"

namespace airflow::review {

void checkTuning(const plan::ControlTuning& tuning, Report& report);

}  // namespace airflow::review
