#include "platform/macos/DispatchQueues.h"

#include <string>
#include <utility>

#include "concurrency/LinkedQueue.h"

namespace airflow::platform {

using concurrency::Executor;
using concurrency::Job;
using concurrency::LinkedQueue;

/// Has one turn at most on its Dispatch queue, and runs one job in each turn: so no executor keeps
/// the rest of the pool waiting for longer than one job.
class DispatchQueues::SerialQueue final : public Executor,
                                          public std::enable_shared_from_this<SerialQueue> {
public:
    /// Takes over a reference to `serial`.
    SerialQueue(std::shared_ptr<DispatchQueues> owner, std::string_view name,
                dispatch_queue_t serial)
        : Executor(name), queues(std::move(owner)), queue(serial) {}
    // Dispatch holds the queue itself while something runs on it, which may be what called this.
    ~SerialQueue() override { dispatch_release(queue); }

    void post(Job& job) noexcept override {
        const std::lock_guard lock(queues->mutex);
        if (queues->isStopping) return;
        jobs.pushBack(job);
        if (scheduled) return;
        scheduled = shared_from_this();
        submit();
    }

private:
    void submit() {
        dispatch_async_f(queue, this,
                         [](void* self) { static_cast<SerialQueue*>(self)->takeTurn(); });
    }

    void takeTurn() {
        // Outlives the lock, because it may be the last reference to both queues.
        std::shared_ptr<SerialQueue> self;
        const std::shared_ptr<DispatchQueues> shared = queues;
        std::unique_lock lock(shared->mutex);
        if (shared->isStopping) {
            self = std::move(scheduled);
            return;
        }
        Job& job = jobs.take();
        ++shared->running;
        lock.unlock();
        runJob(job);
        lock.lock();
        --shared->running;
        shared->changed.notify_all();
        if (jobs.empty())
            self = std::move(scheduled);
        else
            submit();
        lock.unlock();
    }

    const std::shared_ptr<DispatchQueues> queues;
    const dispatch_queue_t queue;
    LinkedQueue<Job> jobs;                   ///< guarded by the lock of the queues
    std::shared_ptr<SerialQueue> scheduled;  ///< itself while it has a turn; guarded likewise
};

std::shared_ptr<Executor> DispatchQueues::make(std::string_view name) {
    const std::string label(name);
    const dispatch_queue_t queue = dispatch_queue_create_with_target(
        label.c_str(), DISPATCH_QUEUE_SERIAL_WITH_AUTORELEASE_POOL,
        dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0));
    return std::make_shared<SerialQueue>(shared_from_this(), name, queue);
}

std::shared_ptr<Executor> DispatchQueues::makeMain() {
    // Retaining and releasing the main queue has no effect.
    return std::make_shared<SerialQueue>(shared_from_this(), "main", dispatch_get_main_queue());
}

void DispatchQueues::stop() {
    std::unique_lock lock(mutex);
    isStopping = true;
    changed.wait(lock, [this] { return running == 0; });
}

}  // namespace airflow::platform
