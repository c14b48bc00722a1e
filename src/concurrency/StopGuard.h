// StopGuard: how a simulated process stops itself without ending the process that simulates it.
#pragma once

#include <string_view>

namespace airflow::concurrency {

/// Is told of the bug that stops a process.
class StopObserver {
public:
    /// From here on nothing of the process may run any more. `violation` is one line, without its
    /// end. Called inside the job that met the bug, before ProcessStop is thrown.
    virtual void processStops(std::string_view violation) noexcept = 0;

protected:
    ~StopObserver() = default;
};

/// Leaves the job that met a bug. It unwinds to the root of its task, or to the place where that
/// awaits a task of another executor, and is caught by no one but the root, which ends without a
/// word. No std::exception, so that nothing takes it for a failure.
struct ProcessStop {};

/// While it lives, stopProcess() and require() of this thread tell `observer` and throw ProcessStop
/// instead of aborting; so does a root that an exception leaves. For the driver of a simulated
/// runtime, around the jobs that it runs. With null everything stays as it is.
class StopGuard {
public:
    explicit StopGuard(StopObserver* observer) noexcept;
    StopGuard(const StopGuard&) = delete;
    StopGuard& operator=(const StopGuard&) = delete;
    ~StopGuard();

private:
    StopObserver* outer;
};

namespace detail {

/// Stops the process because of the exception that is being handled. Returns only when that is a
/// ProcessStop, or has become one.
void stopForException() noexcept;

}  // namespace detail

}  // namespace airflow::concurrency
