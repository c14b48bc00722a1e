#include "concurrency/Executor.h"

namespace airflow::concurrency {

// Reached only through out-of-line functions: a thread_local read inlined into a coroutine may be
// cached across a suspension, and so across a change of thread.
static thread_local const Executor* current = nullptr;

bool Executor::isCurrent() const noexcept {
    return current == this;
}

bool Executor::isAnyCurrent() noexcept {
    return current != nullptr;
}

void Executor::runJob(Job& job) const noexcept {
    const Executor* const outer = current;  // a job that runs another one to its end on this thread
    current = this;
    job.coroutine.resume();
    current = outer;
}

}  // namespace airflow::concurrency
