// The one way in which a thread waits for descriptors without an event loop.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>

#include "concurrency/Clock.h"
#include "platform/linux/BootTime.h"

namespace airflow::platform {

/// Waits until one of the descriptors is readable or at its end, or `now` has come to `until`. The
/// place of the first that is; nothing when the time is up. Those that are -1 are not waited for. A
/// regular file is always readable.
[[nodiscard]] std::optional<std::size_t> waitForAny(
    std::initializer_list<int> descriptors, concurrency::Instant until,
    const std::function<concurrency::Instant()>& now = bootTime);

/// Waits for so long, whatever signals come.
void pauseFor(std::chrono::milliseconds duration);

}  // namespace airflow::platform
