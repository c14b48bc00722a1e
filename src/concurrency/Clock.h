// Monotonic time: what sleeps and deadlines are measured by. Wall-clock dates are in Date.h.
#pragma once

#include <chrono>

namespace airflow::concurrency {

using Duration = std::chrono::nanoseconds;

/// Time that never goes back and counts through system sleep, so that a watchdog whose machine was
/// suspended finds its deadline passed. Has no now(): ask the Runtime.
struct MonotonicClock {
    using duration = Duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<MonotonicClock>;
    static constexpr bool is_steady = true;
};
using Instant = MonotonicClock::time_point;

[[nodiscard]] constexpr double inSeconds(Duration time) {
    return std::chrono::duration<double>(time).count();
}
/// Requires a number that a Duration can hold: less than 292 years.
[[nodiscard]] constexpr Duration fromSeconds(double seconds) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

}  // namespace airflow::concurrency
