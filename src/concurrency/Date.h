// Wall-clock dates: what a person's clock shows. They may jump; deadlines never use them.
#pragma once

#include <chrono>

namespace airflow::concurrency {

/// A span of seconds as a 64-bit float, the form in which plans give theirs.
using Seconds = std::chrono::duration<double>;

/// A moment of the wall clock. Floating point, so that no difference of two dates can overflow.
using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

/// Before every real date: the heartbeat that never came, the snapshot that was never taken.
inline constexpr Date distantPast = Date::min();

}  // namespace airflow::concurrency
