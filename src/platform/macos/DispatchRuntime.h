// DispatchRuntime: the runtime of real time on a Mac, over Dispatch. macOS only.
#pragma once

#include <memory>

#include "concurrency/Runtime.h"

namespace airflow::platform {

class DispatchQueues;
class DispatchTimer;

/// Executors are serial queues, all of them over the shared pool of the default quality of service.
///
/// Its monotonic clock is CLOCK_MONOTONIC_RAW, which counts while the machine sleeps and is not
/// adjusted: mach_absolute_time stands still meanwhile, and a watchdog of 15 seconds would then
/// trust for hours in a client that was last heard before. Sleeps that ended while the machine
/// slept wake as soon as it does.
///
/// Destroying it waits for the jobs that run at that moment, and abandons what is pending.
class DispatchRuntime final : public concurrency::Runtime {
public:
    DispatchRuntime();
    ~DispatchRuntime() override;

    std::shared_ptr<concurrency::Executor> makeExecutor(std::string_view name) override;
    /// The main thread's serial context. Its jobs run once the main thread is in dispatch_main().
    [[nodiscard]] std::shared_ptr<concurrency::Executor> makeMainExecutor();
    [[nodiscard]] concurrency::Instant now() const noexcept override;
    [[nodiscard]] concurrency::Date date() const noexcept override;

private:
    concurrency::TimerQueue::Key addSleeper(concurrency::Instant deadline,
                                            concurrency::Suspended sleeper) override;
    concurrency::Suspended removeSleeper(concurrency::TimerQueue::Key key) override;
    std::optional<concurrency::TimerQueue::Key> block(concurrency::Duration duration,
                                                      const concurrency::CancelToken& token,
                                                      concurrency::Suspended sleeper) override;
    void stop() noexcept override;

    std::shared_ptr<DispatchQueues> queues;
    std::unique_ptr<DispatchTimer> timer;
};

}  // namespace airflow::platform
