// Executors: where coroutines run.
#pragma once

#include <coroutine>
#include <string>
#include <string_view>

#include "concurrency/LinkedQueue.h"

namespace airflow::concurrency {

class Executor;

/// A coroutine as executors see it. It lives in the coroutine's promise, so that queueing allocates
/// nothing and cannot fail. A coroutine is queued once at most, since it is suspended once at most.
struct Job {
    std::coroutine_handle<> coroutine;
    Executor* executor = nullptr;
    Job* next = nullptr;  ///< in the queue of its executor
};

/// Runs coroutines one at a time, in the order they were posted.
///
/// It is shared, because a backend may still hold it for an instant after its last job: the job
/// that ends a component may drop the executor that it runs on.
class Executor {
public:
    explicit Executor(std::string_view name) : title(name) {}
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;
    virtual ~Executor() = default;

    /// Queues `job` after everything already posted; never resumes it inline. Any thread may call.
    /// Cannot fail: a coroutine that could not return to its executor would lose the exclusion its
    /// actor relies on. Does nothing, and does not look at `job`, once the runtime was abandoned.
    virtual void post(Job& job) noexcept = 0;

    /// True while the calling thread runs a job of this executor.
    [[nodiscard]] bool isCurrent() const noexcept;
    /// True while the calling thread runs a job of any executor.
    [[nodiscard]] static bool isAnyCurrent() noexcept;

    /// For people; need not be unique.
    [[nodiscard]] const std::string& name() const noexcept { return title; }

    /// Resumes `job` as one job of this executor, on the calling thread. For backends. The job may
    /// destroy its frame and, unless the backend holds it, this executor.
    void runJob(Job& job) const noexcept;

private:
    std::string title;
};

/// A suspended coroutine and the executor it has to continue on; or nobody.
///
/// The executor is kept beside the job rather than read from it: after the runtime was abandoned
/// the job's frame is gone, and resume() must be harmless then.
struct Suspended {
    Job* job = nullptr;
    Executor* executor = nullptr;

    explicit operator bool() const noexcept { return job != nullptr; }

    /// Lets the coroutine continue. It may finish and free its frame before this call returns, so
    /// the caller touches nothing that lives in that frame afterwards.
    void resume() const noexcept { executor->post(*job); }
};

}  // namespace airflow::concurrency
