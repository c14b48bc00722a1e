#include "concurrency/Runtime.h"

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

Task<void> Runtime::blockingSleep(Duration duration) {
    co_await Suspend([&](Suspended sleeper) { return block(duration, sleeper); });
}

void Runtime::detach(std::string_view name, Task<void> work, RootObserver* observer) {
    roots.start(makeExecutor(name), observer, std::move(work));
}

void Runtime::abandon() noexcept {
    require(!Executor::isAnyCurrent(), "no job abandons the runtime that it runs in");
    stop();
    roots.destroyAll();
}

}  // namespace airflow::concurrency
