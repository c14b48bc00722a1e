// TaskScope: the background work of one component, all of which ends before the component does.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string_view>
#include <utility>

#include "concurrency/Runtime.h"

namespace airflow::concurrency {

/// Starts tasks nobody awaits, counts them, and waits for all of them.
///
/// It is destroyed when it is empty: after a join, or after its runtime was abandoned.
class TaskScope final : RootObserver {
public:
    explicit TaskScope(Runtime& runtime) : runtime(runtime) {}
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;
    ~TaskScope() { requireOrAbort(running() == 0, "a scope is joined before it is destroyed"); }

    /// Starts `work`, as Runtime::detach does. Any thread may call.
    void spawn(std::string_view name, Task<void> work) {
        begin();
        runtime.detach(name, std::move(work), this);
    }
    template <BackgroundBody Body>
    BackgroundTask spawn(std::string_view name, Body body) {
        begin();
        return runtime.detach(name, std::move(body), this);
    }

    [[nodiscard]] int running() const {
        const std::lock_guard lock(mutex);
        return count;
    }

    /// Completes when everything spawned has finished, including what that work spawned. One task
    /// joins at a time.
    Task<void> join() {
        co_await Suspend([this](Suspended caller) {
            const std::lock_guard lock(mutex);
            require(!joiner, "one task joins a scope at a time");
            if (count > 0) joiner = caller;
            return count > 0;
        });
    }

    /// The same for a plain thread, such as the one that runs main(). Not for simulated runtimes,
    /// in which nobody else would do the work.
    void joinBlocking() {
        std::unique_lock lock(mutex);
        idle.wait(lock, [this] { return count == 0; });
    }

private:
    void begin() {
        const std::lock_guard lock(mutex);
        ++count;
    }

    // Under the lock to the end: whoever joins may destroy the scope as soon as it is released.
    void rootEnded() noexcept override {
        const std::lock_guard lock(mutex);
        if (--count > 0) return;
        idle.notify_all();
        if (joiner) std::exchange(joiner, {}).resume();
    }

    Runtime& runtime;
    mutable std::mutex mutex;
    std::condition_variable idle;
    int count = 0;
    Suspended joiner;
};

}  // namespace airflow::concurrency
