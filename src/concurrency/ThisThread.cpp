#include "concurrency/ThisThread.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "concurrency/LinkedQueue.h"
#include "concurrency/Roots.h"

namespace airflow::concurrency {

namespace {

/// Runs what is posted to it on the thread that calls runUntilEnd().
class ThisThread final : public Executor, public RootObserver {
public:
    ThisThread() : Executor("this thread") {}

    void post(Job& job) noexcept override {
        const std::lock_guard lock(mutex);
        jobs.pushBack(job);
        posted.notify_one();
    }

    void runUntilEnd() {
        while (!hasEnded) {
            std::unique_lock lock(mutex);
            posted.wait(lock, [this] { return !jobs.empty(); });
            Job& job = jobs.take();
            lock.unlock();
            runJob(job);
        }
    }

private:
    void rootEnded() noexcept override { hasEnded = true; }

    std::mutex mutex;
    std::condition_variable posted;
    LinkedQueue<Job> jobs;
    bool hasEnded = false;  ///< set by a job, and so by the thread that reads it
};

}  // namespace

void runOnThisThread(Task<void> task) {
    const auto executor = std::make_shared<ThisThread>();
    Roots roots;
    roots.start(executor, executor.get(), std::move(task));
    executor->runUntilEnd();
}

}  // namespace airflow::concurrency
