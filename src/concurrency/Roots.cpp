#include "concurrency/Roots.h"

#include <utility>

#include "concurrency/StopGuard.h"

namespace airflow::concurrency {

/// What a root's coroutine returns; owns nothing.
struct Roots::Frame {
    using promise_type = Root;
    Root& root;
};

/// The promise of a root, which is also its entry in the registry. The frame owns itself.
struct Roots::Root : Promise {
    struct Final {
        bool await_ready() const noexcept { return false; }
        // Not inlined, because it frees the frame that its variables could otherwise be kept in.
        [[gnu::noinline]] void await_suspend(std::coroutine_handle<Root> self) const noexcept {
            RootObserver* const told = self.promise().observer;
            self.destroy();
            if (told) told->rootEnded();
        }
        void await_resume() const noexcept {}
    };

    Root(Roots& registry, std::shared_ptr<Executor>& given, RootObserver* watcher, Task<void>&)
        : roots(registry), owner(given), observer(watcher) {
        coroutine = std::coroutine_handle<Root>::from_promise(*this);
        executor = owner.get();
        const std::lock_guard lock(roots.mutex);
        position = roots.pending.insert(roots.pending.end(), this);
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    ~Root() {
        const std::lock_guard lock(roots.mutex);
        roots.pending.erase(position);
    }

    Frame get_return_object() noexcept;
    Final final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const noexcept { detail::stopForException(); }

    Roots& roots;
    const std::shared_ptr<Executor> owner;
    RootObserver* const observer;
    std::list<Root*>::iterator position;
};

Roots::Frame Roots::Root::get_return_object() noexcept {
    return {*this};
}

Roots::Frame Roots::run(Roots&, std::shared_ptr<Executor>, RootObserver*, Task<void> work) {
    co_await std::move(work);
}

void Roots::start(std::shared_ptr<Executor> executor, RootObserver* observer, Task<void> work) {
    Root& root = run(*this, std::move(executor), observer, std::move(work)).root;
    root.executor->post(root);
}

void Roots::destroyAll() noexcept {
    for (;;) {
        std::unique_lock lock(mutex);
        if (pending.empty()) return;
        const Root& youngest = *pending.back();
        orphaned.push_back(youngest.owner);
        lock.unlock();
        RootObserver* const observer = youngest.observer;
        youngest.coroutine.destroy();
        if (observer) observer->rootEnded();
    }
}

void Roots::forEach(const std::function<void(const Promise&)>& visit) const {
    const std::lock_guard lock(mutex);
    for (const Root* root : pending) visit(*root);
}

}  // namespace airflow::concurrency
