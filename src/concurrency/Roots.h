// Roots: the tasks that nobody awaits, and with them everything that is pending.
//
// Every suspended coroutine is awaited by another one, up to a root; a root's frame owns the task
// that it runs, whose frame owns the task that it awaits, and so on. Destroying the roots therefore
// frees everything, from the outside in.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "concurrency/Task.h"

namespace airflow::concurrency {

/// Is told that a root is gone.
class RootObserver {
public:
    /// Called on the thread that ended the root, after its frame was freed.
    virtual void rootEnded() noexcept = 0;

protected:
    ~RootObserver() = default;
};

/// The pending roots of one runtime.
class Roots {
public:
    Roots() = default;
    Roots(const Roots&) = delete;
    Roots& operator=(const Roots&) = delete;
    ~Roots() { destroyAll(); }

    /// Starts `work` as a job of `executor`, which the root keeps alive. An exception that leaves
    /// `work` is a bug and stops the process; the one that StopGuard lets pass ends the root only.
    /// `observer` may be null. Any thread may call.
    void start(std::shared_ptr<Executor> executor, RootObserver* observer, Task<void> work);

    /// Frees every root, the youngest first, because younger work refers to older. No job of these
    /// roots may be running or ever run again. Their executors are kept, since whoever remembers a
    /// freed coroutine may still try to resume it.
    void destroyAll() noexcept;

    /// Calls `visit` for each root, the oldest first. No job may be running.
    void forEach(const std::function<void(const Promise& root)>& visit) const;

private:
    struct Root;
    struct Frame;

    static Frame run(Roots& roots, std::shared_ptr<Executor> executor, RootObserver* observer,
                     Task<void> work);

    mutable std::mutex mutex;
    std::list<Root*> pending;
    std::vector<std::shared_ptr<Executor>> orphaned;
};

}  // namespace airflow::concurrency
