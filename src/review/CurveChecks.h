// CurveChecks: whether a curve does what curves are for.
#pragma once

#include <string>

#include "plan/FanCurve.h"
#include "review/Report.h"

namespace airflow::review {

/// `isCovered`: a rule drives the fan to full speed in time, so that the curve need not. `pointer`
/// points to the curve.
void checkCurve(const plan::FanCurve& curve, bool isCovered, const std::string& pointer,
                Report& report);

}  // namespace airflow::review
