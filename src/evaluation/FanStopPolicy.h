// FanStopPolicy: when a fan that nobody asks to turn is stopped, and when it turns again.
#pragma once

#include "concurrency/Date.h"
#include "numbers/Units.h"

namespace airflow::evaluation::FanStopPolicy {

/// A fan whose request stays at or below 0 % this long is stopped.
inline constexpr concurrency::Seconds stopDwellSeconds{10.0};
/// A stopped fan needs a request of at least this percentage to start again,
inline constexpr numbers::Percent resumePercent{3.0};
/// and must keep such a request this long, so that it does not start and stop around zero.
inline constexpr concurrency::Seconds resumeDwellSeconds{3.0};
/// The RPM written for a stopped fan.
inline constexpr double stoppedTargetRPM = 0.0;

}  // namespace airflow::evaluation::FanStopPolicy
