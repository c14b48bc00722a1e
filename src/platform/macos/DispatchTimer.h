// DispatchTimer: wakes sleeping coroutines at their deadlines. macOS only.
#pragma once

#include <dispatch/dispatch.h>

#include <mutex>

#include "concurrency/TimerQueue.h"

namespace airflow::platform {

/// Two strict timers without leeway are set for the same deadline, and the earlier one counts: that
/// of uptime, which no change of the wall clock can put off, but which stands still while the
/// machine sleeps; and that of the wall clock, which does not. Neither is trusted: when one fires,
/// the monotonic clock says who is due.
class DispatchTimer {
public:
    DispatchTimer();
    DispatchTimer(const DispatchTimer&) = delete;
    DispatchTimer& operator=(const DispatchTimer&) = delete;
    ~DispatchTimer();

    /// Counts from the start of the machine, through its sleep.
    [[nodiscard]] static concurrency::Instant now() noexcept;

    concurrency::TimerQueue::Key add(concurrency::Instant deadline, concurrency::Suspended sleeper);
    concurrency::Suspended remove(concurrency::TimerQueue::Key key);

    /// Wakes nobody from now on; requires that nobody adds sleepers any more. May be called again.
    void stop();

private:
    dispatch_source_t makeSource();
    void wakeDue();
    void arm();

    std::mutex mutex;
    concurrency::TimerQueue sleepers;
    const dispatch_queue_t queue;
    const dispatch_source_t uptime;
    const dispatch_source_t wallClock;
};

}  // namespace airflow::platform
