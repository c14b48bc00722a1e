#include "concurrency/Runtime.h"

#include <condition_variable>
#include <mutex>
#include <optional>

namespace airflow::concurrency {

Task<Wake> Runtime::sleepUntil(Instant deadline, CancelToken token) {
    Wake wake = Wake::elapsed;
    // Gone before `wake` is, and with it every chance that the callback runs.
    std::optional<CancelToken::Registration> registration;
    co_await Suspend([&](Suspended sleeper) {
        const TimerQueue::Key key = addSleeper(deadline, sleeper);
        registration.emplace(token, [this, key, &wake] {
            if (const Suspended cancelled = removeSleeper(key)) {
                wake = Wake::cancelled;
                cancelled.resume();
            }
        });
        return true;
    });
    co_return wake;
}

Task<Wake> Runtime::sleepFor(Duration duration, CancelToken token) {
    const Instant start = now();
    const bool isEndless = duration > Instant::max() - start;
    return sleepUntil(isEndless ? Instant::max() : start + duration, std::move(token));
}

Task<void> Runtime::blockingSleep(Duration duration, CancelToken token) {
    std::optional<CancelToken::Registration> registration;
    co_await Suspend([&](Suspended sleeper) {
        const auto key = block(duration, token, sleeper);
        if (!key) return false;
        registration.emplace(token, [this, key = *key] {
            if (const Suspended cancelled = removeSleeper(key)) cancelled.resume();
        });
        return true;
    });
}

void Runtime::blockThread(Duration duration, const CancelToken& token) {
    std::mutex mutex;
    std::condition_variable changed;
    bool isCancelled = false;
    const CancelToken::Registration registration(token, [&] {
        const std::lock_guard lock(mutex);
        isCancelled = true;
        changed.notify_one();
    });
    std::unique_lock lock(mutex);
    (void)changed.wait_for(lock, duration, [&] { return isCancelled; });
}

void Runtime::detach(std::string_view name, Task<void> work, RootObserver* observer) {
    roots.start(makeExecutor(name), observer, std::move(work));
}

void Runtime::abandon() noexcept {
    requireOrAbort(!Executor::isAnyCurrent(), "no job abandons the runtime that it runs in");
    stop();
    roots.destroyAll();
}

}  // namespace airflow::concurrency
