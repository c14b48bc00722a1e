// Runtime: the seam behind which threads and time live.
#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "concurrency/Cancellation.h"
#include "concurrency/Clock.h"
#include "concurrency/Date.h"
#include "concurrency/Roots.h"
#include "concurrency/Task.h"
#include "concurrency/TimerQueue.h"

namespace airflow::concurrency {

enum class Wake { elapsed, cancelled };

/// The handle of a task that runs in the background. Dropping it changes nothing: the task goes on.
class BackgroundTask {
public:
    explicit BackgroundTask(CancelSource source) : source(std::move(source)) {}

    /// Cancels the token that the task was given. Any thread may call, also after the task's end.
    void cancel() const { source.cancel(); }
    [[nodiscard]] bool isCancelled() const { return source.token().isRequested(); }

private:
    CancelSource source;
};

/// The body of a background task: given its token, it returns the work.
template <typename Body>
concept BackgroundBody = std::move_constructible<Body> && requires(Body body, CancelToken token) {
    { body(token) } -> std::same_as<Task<void>>;
};

/// Executors, sleep, both clocks, and background work. It outlives everything that uses it.
///
/// Its functions may be called from any thread, unless they say otherwise.
class Runtime {
public:
    Runtime() = default;
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;
    virtual ~Runtime() = default;

    [[nodiscard]] virtual std::shared_ptr<Executor> makeExecutor(std::string_view name) = 0;
    [[nodiscard]] virtual Instant now() const noexcept = 0;
    /// What a person's clock shows. May jump either way; no sleep notices.
    [[nodiscard]] virtual Date date() const noexcept = 0;

    /// Completes at `deadline`, or earlier when `token` is cancelled: at once if it already was.
    /// Lets other operations of the caller's executor run, even when there is nothing to wait for.
    Task<Wake> sleepUntil(Instant deadline, CancelToken token = {});
    /// The same, counted from this call.
    Task<Wake> sleepFor(Duration duration, CancelToken token = {});
    /// Sleeps as a thread does: until it ends, or `token` is cancelled, no other operation of the
    /// caller's executor runs. Other executors run on, as far as the backend has threads to spare.
    /// Backends with threads never suspend the caller.
    Task<void> blockingSleep(Duration duration, CancelToken token = {});

    /// Starts work that belongs to no actor and that nobody awaits. It gets an executor of its own,
    /// so it runs beside everything else. An exception that leaves it stops the process.
    /// `observer`, if there is one, outlives the work.
    void detach(std::string_view name, Task<void> work, RootObserver* observer = nullptr);
    /// The same for work that can be cancelled: `body` is called with the task's token, by the task
    /// itself, and is kept until the task ends.
    template <BackgroundBody Body>
    BackgroundTask detach(std::string_view name, Body body, RootObserver* observer = nullptr) {
        CancelSource source;
        detach(name, call(std::move(body), source.token()), observer);
        return BackgroundTask(std::move(source));
    }

    /// Ends this runtime for good: nothing runs or wakes any more, and the frames of everything
    /// pending are destroyed, which runs the destructors of their locals. What these destructors
    /// post or start never runs. The objects that pending work refers to must still be there, so an
    /// owner of both abandons the runtime first, and then destroys the objects. The destructors of
    /// backends do it again, for runtimes that were not told. Not to be called from a job.
    void abandon() noexcept;

protected:
    virtual TimerQueue::Key addSleeper(Instant deadline, Suspended sleeper) = 0;
    virtual Suspended removeSleeper(TimerQueue::Key key) = 0;
    /// Blocks the executor of `sleeper`, whose job is running. Either blocks the calling thread, as
    /// blockThread() does, and returns nothing; or adds the sleeper, to be resumed as the
    /// executor's next job, and returns its key.
    virtual std::optional<TimerQueue::Key> block(Duration duration, const CancelToken& token,
                                                 Suspended sleeper) = 0;
    static void blockThread(Duration duration, const CancelToken& token);
    /// Returns when no job is running and none will be. May be called again.
    virtual void stop() noexcept = 0;

    [[nodiscard]] const Roots& pendingRoots() const noexcept { return roots; }

private:
    template <typename Body>
    static Task<void> call(Body body, CancelToken token) {
        co_await body(std::move(token));
    }

    Roots roots;
};

}  // namespace airflow::concurrency
