// ThreadRuntime: the runtime of real time on Linux; a few threads for all executors, one for time.
#pragma once

#include <cstddef>
#include <memory>

#include "concurrency/Runtime.h"

namespace airflow::platform {

/// Starts a pool of `threads` (at least 1) and a timer thread. None of them wakes while there is
/// nothing to do. Choose more threads than there are executors that sleep blockingly at a time.
///
/// Its monotonic clock is CLOCK_BOOTTIME, because steady_clock (CLOCK_MONOTONIC) stands still while
/// the machine is suspended: a watchdog of 15 seconds would then trust for hours in a client that
/// was last heard before. Sleeps that ended meanwhile wake as soon as the machine does.
///
/// Destroying it waits for the jobs that run at that moment, and abandons what is pending. Throws
/// std::system_error when the system gives the process no more threads or descriptors.
[[nodiscard]] std::unique_ptr<concurrency::Runtime> makeThreadRuntime(std::size_t threads = 4);

}  // namespace airflow::platform
