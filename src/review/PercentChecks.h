// PercentChecks: whether a percentage is one.
#pragma once

#include <string>

#include "review/Report.h"

namespace airflow::review {

void checkPercent(double percent, std::string pointer, Report& report);

}  // namespace airflow::review
