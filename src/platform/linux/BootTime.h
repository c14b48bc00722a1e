// BootTime: the monotonic clock of this machine.
#pragma once

#include <time.h>

#include <chrono>

#include "concurrency/Clock.h"

namespace airflow::platform {

/// Counts while the machine is suspended, unlike steady_clock (CLOCK_MONOTONIC).
inline concurrency::Instant bootTime() noexcept {
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return concurrency::Instant(std::chrono::seconds(time.tv_sec) +
                                concurrency::Duration(time.tv_nsec));
}

}  // namespace airflow::platform
