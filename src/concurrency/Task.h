// Task: a lazily started coroutine that never leaves its executor.
//
// Affinity. A promise knows its executor: the actor's for an actor method, otherwise the awaiting
// coroutine's. Awaiting a task of the same executor is a plain call: nothing is queued and nobody
// runs in between. Awaiting one of another executor posts it there and, at its end, posts the
// caller back.
//
// Resumption never races with suspension, without locks or atomics: a coroutine suspends inside one
// job of its executor and is resumed by a later job of the same one, so await_suspend has returned
// by then. An executor that ran two jobs at once would break this; so even a task that belongs to
// no actor has a serial executor, its own.
//
// Not symmetric transfer into a task, but a call: a task that ends without suspending returns to
// its caller as a function does, and a loop of them keeps the stack flat in every build.
#pragma once

#include <concepts>
#include <coroutine>
#include <exception>
#include <source_location>
#include <utility>
#include <variant>

#include "concurrency/Actor.h"
#include "concurrency/Executor.h"
#include "concurrency/Require.h"

namespace airflow::concurrency {

/// What every coroutine of this program has in its promise.
struct Promise : Job {
    const Promise* awaited = nullptr;  ///< the task that it awaits; null for any other wait
    std::source_location place;        ///< of the co_await that it last suspended at

    std::suspend_always initial_suspend() const noexcept { return {}; }
};

/// The one way to suspend. `park` is given the suspended coroutine and either keeps it for whoever
/// will resume it and returns true, or returns false to let it continue at once. It is called
/// inside the co_await, so it may refer to the coroutine's locals.
template <std::predicate<Suspended> Park>
class Suspend {
public:
    explicit Suspend(Park park) : park(std::move(park)) {}

    bool await_ready() const noexcept { return false; }
    template <std::derived_from<Promise> P>
    bool await_suspend(std::coroutine_handle<P> coroutine,
                       std::source_location place = std::source_location::current()) {
        Promise& promise = coroutine.promise();
        promise.awaited = nullptr;
        promise.place = place;
        return park(Suspended{&promise, promise.executor});
    }
    void await_resume() const noexcept {}

private:
    Park park;
};

namespace detail {

template <typename A>
concept IsActor = std::convertible_to<A&, const Actor&>;

struct TaskPromise : Promise {
    Suspended caller;              ///< who awaits this task
    bool callerSuspended = false;  ///< false while the caller is still inside await_suspend

    struct Final {
        bool await_ready() const noexcept { return false; }
        // Not inlined: once the caller is posted, another thread may free this frame, and a
        // compiler that inlines this function may keep its variables in the frame.
        template <std::derived_from<TaskPromise> P>
        [[gnu::noinline]] std::coroutine_handle<> await_suspend(
            std::coroutine_handle<P> self) const noexcept {
            const TaskPromise& promise = self.promise();
            if (!promise.callerSuspended) return std::noop_coroutine();  // it will see done()
            const Suspended awaiting = promise.caller;
            if (awaiting.executor == promise.executor) return awaiting.job->coroutine;
            awaiting.resume();
            return std::noop_coroutine();
        }
        void await_resume() const noexcept {}
    };
    Final final_suspend() const noexcept { return {}; }
};

template <typename T>
struct TaskResult : TaskPromise {
    std::variant<std::monostate, T, std::exception_ptr> result;

    template <typename U = T>
    void return_value(U&& value) {
        result.template emplace<1>(std::forward<U>(value));
    }
    void unhandled_exception() noexcept { result.template emplace<2>(std::current_exception()); }
    T take() {
        if (const auto* error = std::get_if<2>(&result)) std::rethrow_exception(*error);
        return std::get<1>(std::move(result));
    }
};

template <>
struct TaskResult<void> : TaskPromise {
    std::exception_ptr error;

    void return_void() const noexcept {}
    void unhandled_exception() noexcept { error = std::current_exception(); }
    void take() const {
        if (error) std::rethrow_exception(error);
    }
};

}  // namespace detail

/// The result of an asynchronous function. Starts when awaited; awaited once at most; never runs
/// when it is not. Throws from co_await what the function throws.
///
/// Coroutines take their parameters by value: a reference refers to whatever the caller had, which
/// need not outlive the first suspension. (Actors and seams are taken by reference; they do.) For
/// the same reason no capturing lambda is a coroutine: its captures live in the closure, not in the
/// frame. A task may be destroyed before it starts and after it ended; while it is suspended only
/// by Runtime::abandon(), and then what it waits for must never touch it again.
template <typename T = void>
class [[nodiscard]] Task {
public:
    struct promise_type : detail::TaskResult<T> {
        promise_type() = default;
        template <detail::IsActor A, typename... Others>
        explicit promise_type(A& actor, Others&...) {
            this->executor = &actor.executor();
        }
        Task get_return_object() noexcept {
            const auto self = std::coroutine_handle<promise_type>::from_promise(*this);
            this->coroutine = self;
            return Task(self);
        }
    };

    Task(Task&& other) noexcept : coroutine(std::exchange(other.coroutine, {})) {}
    Task& operator=(Task&&) = delete;
    ~Task() {
        if (coroutine) coroutine.destroy();
    }

    bool await_ready() const noexcept { return false; }

    template <std::derived_from<Promise> P>
    bool await_suspend(std::coroutine_handle<P> caller,
                       std::source_location place = std::source_location::current()) noexcept {
        promise_type& promise = coroutine.promise();
        Promise& waiting = caller.promise();
        requireOrAbort(!promise.caller, "a task is awaited once");
        waiting.awaited = &promise;
        waiting.place = place;
        promise.caller = Suspended{&waiting, waiting.executor};
        if (!promise.executor) promise.executor = waiting.executor;
        if (promise.executor != waiting.executor) {
            promise.callerSuspended = true;
            promise.executor->post(promise);
            return true;
        }
        coroutine.resume();
        if (coroutine.done()) return false;
        promise.callerSuspended = true;
        return true;
    }

    T await_resume() { return coroutine.promise().take(); }

private:
    explicit Task(std::coroutine_handle<promise_type> coroutine) : coroutine(coroutine) {}

    std::coroutine_handle<promise_type> coroutine;
};

}  // namespace airflow::concurrency
