#include "platform/macos/DispatchTimer.h"

#include <time.h>

#include <algorithm>

namespace airflow::platform {

using concurrency::Duration;
using concurrency::Instant;
using concurrency::Suspended;
using concurrency::TimerQueue;

DispatchTimer::DispatchTimer()
    : queue(dispatch_queue_create("timers", DISPATCH_QUEUE_SERIAL)),
      uptime(makeSource()),
      wallClock(makeSource()) {
    dispatch_resume(uptime);
    dispatch_resume(wallClock);
}

DispatchTimer::~DispatchTimer() {
    stop();
    dispatch_release(wallClock);
    dispatch_release(uptime);
    dispatch_release(queue);
}

/// A suspended timer that is set for no time.
dispatch_source_t DispatchTimer::makeSource() {
    const dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, DISPATCH_TIMER_STRICT, queue);
    dispatch_set_context(source, this);
    dispatch_source_set_event_handler_f(
        source, [](void* self) { static_cast<DispatchTimer*>(self)->wakeDue(); });
    dispatch_source_set_timer(source, DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, 0);
    return source;
}

Instant DispatchTimer::now() noexcept {
    return Instant(Duration(clock_gettime_nsec_np(CLOCK_MONOTONIC_RAW)));
}

TimerQueue::Key DispatchTimer::add(Instant deadline, Suspended sleeper) {
    const std::lock_guard lock(mutex);
    const bool isEarliest = deadline < sleepers.next();
    const TimerQueue::Key key = sleepers.add(deadline, sleeper);
    if (isEarliest) arm();
    return key;
}

/// Leaves the timers as they are: firing once for nothing is cheaper than setting them twice.
Suspended DispatchTimer::remove(TimerQueue::Key key) {
    const std::lock_guard lock(mutex);
    return sleepers.remove(key);
}

void DispatchTimer::stop() {
    dispatch_source_cancel(uptime);
    dispatch_source_cancel(wallClock);
    dispatch_sync_f(queue, nullptr, [](void*) {});  // a handler may be running
    const std::lock_guard lock(mutex);
    sleepers.clear();
}

void DispatchTimer::wakeDue() {
    const std::lock_guard lock(mutex);
    while (const Suspended sleeper = sleepers.popDue(now())) sleeper.resume();
    if (!sleepers.empty()) arm();
}

/// Sets both timers for the earliest deadline, at once if that has passed. Needs the lock.
void DispatchTimer::arm() {
    const Duration wait = std::max(sleepers.next() - now(), Duration::zero());
    dispatch_source_set_timer(uptime, dispatch_time(DISPATCH_TIME_NOW, wait.count()),
                              DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_timer(wallClock, dispatch_walltime(nullptr, wait.count()),
                              DISPATCH_TIME_FOREVER, 0);
}

}  // namespace airflow::platform
