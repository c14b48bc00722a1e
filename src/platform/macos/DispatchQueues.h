// DispatchQueues: executors over serial Dispatch queues. macOS only.
#pragma once

#include <dispatch/dispatch.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string_view>

#include "concurrency/Executor.h"

namespace airflow::platform {

/// The executors of one runtime, and the one lock that guards their queues of jobs: jobs are short
/// and few, and a single lock can be seen to be right. Shared by its executors.
class DispatchQueues : public std::enable_shared_from_this<DispatchQueues> {
public:
    /// An executor over a serial queue of its own with that label.
    [[nodiscard]] std::shared_ptr<concurrency::Executor> make(std::string_view name);
    /// An executor over the main queue.
    [[nodiscard]] std::shared_ptr<concurrency::Executor> makeMain();

    /// Waits for the jobs that run now; no other will. May be called again.
    void stop();

private:
    class SerialQueue;

    std::mutex mutex;
    std::condition_variable changed;
    int running = 0;  ///< jobs; guarded by the lock
    bool isStopping = false;
};

}  // namespace airflow::platform
