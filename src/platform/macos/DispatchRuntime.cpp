#include "platform/macos/DispatchRuntime.h"

#include <dispatch/dispatch.h>

#include <chrono>

#include "platform/macos/DispatchQueues.h"
#include "platform/macos/DispatchTimer.h"

namespace airflow::platform {

using concurrency::CancelToken;
using concurrency::Duration;
using concurrency::Executor;
using concurrency::Instant;
using concurrency::Suspended;
using concurrency::TimerQueue;

DispatchRuntime::DispatchRuntime()
    : queues(std::make_shared<DispatchQueues>()), timer(std::make_unique<DispatchTimer>()) {}

DispatchRuntime::~DispatchRuntime() {
    abandon();
}

std::shared_ptr<Executor> DispatchRuntime::makeExecutor(std::string_view name) {
    return queues->make(name);
}

std::shared_ptr<Executor> DispatchRuntime::makeMainExecutor() {
    return queues->makeMain();
}

Instant DispatchRuntime::now() const noexcept {
    return DispatchTimer::now();
}

concurrency::Date DispatchRuntime::date() const noexcept {
    return std::chrono::system_clock::now();
}

TimerQueue::Key DispatchRuntime::addSleeper(Instant deadline, Suspended sleeper) {
    return timer->add(deadline, sleeper);
}

Suspended DispatchRuntime::removeSleeper(TimerQueue::Key key) {
    return timer->remove(key);
}

/// Dispatch's own semaphore rather than a condition variable, whose deadline is one of the wall
/// clock here: set back, that would hold up the end of the process for hours.
std::optional<TimerQueue::Key> DispatchRuntime::block(Duration duration, const CancelToken& token,
                                                      Suspended) {
    const dispatch_semaphore_t cancelled = dispatch_semaphore_create(0);
    {
        const CancelToken::Registration registration(
            token, [cancelled] { dispatch_semaphore_signal(cancelled); });
        (void)dispatch_semaphore_wait(cancelled,
                                      dispatch_time(DISPATCH_TIME_NOW, duration.count()));
    }
    dispatch_release(cancelled);
    return std::nullopt;
}

void DispatchRuntime::stop() noexcept {
    // The queues first: a job may go to sleep.
    queues->stop();
    timer->stop();
}

}  // namespace airflow::platform
