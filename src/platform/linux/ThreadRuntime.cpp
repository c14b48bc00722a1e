#include "platform/linux/ThreadRuntime.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/BootTime.h"
#include "platform/linux/LocalSocket.h"

namespace airflow::platform {
namespace {

using concurrency::Date;
using concurrency::Duration;
using concurrency::Executor;
using concurrency::Instant;
using concurrency::Job;
using concurrency::LinkedQueue;
using concurrency::require;
using concurrency::Suspended;
using concurrency::TimerQueue;

/// A few threads that run strands. One lock guards the pool and all its strands: jobs are short
/// and few, and a single lock can be seen to be right.
class Pool {
public:
    class Strand;

    explicit Pool(std::size_t threadCount) {
        require(threadCount > 0, "a pool has a thread");
        try {
            for (std::size_t i = 0; i < threadCount; ++i) threads.emplace_back([this] { work(); });
        } catch (...) {
            stop();
            throw;
        }
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() { stop(); }

    /// Waits for the jobs that run now; no other will. May be called again.
    void stop() {
        {
            const std::lock_guard lock(mutex);
            isStopping = true;
        }
        strandArrived.notify_all();
        for (std::thread& thread : threads) thread.join();
        threads.clear();
        ready.clear();
    }

private:
    void work();

    std::mutex mutex;
    std::condition_variable strandArrived;
    std::deque<std::shared_ptr<Strand>> ready;  ///< holds a strand alive from here to its job's end
    bool isStopping = false;
    std::vector<std::thread> threads;
};

/// A serial executor without a thread of its own.
class Pool::Strand final : public Executor, public std::enable_shared_from_this<Strand> {
public:
    Strand(Pool& owner, std::string_view name) : Executor(name), pool(owner) {}

    void post(Job& job) noexcept override {
        const std::lock_guard lock(pool.mutex);
        if (pool.isStopping) return;
        jobs.pushBack(job);
        if (std::exchange(isScheduled, true)) return;
        pool.ready.push_back(shared_from_this());
        pool.strandArrived.notify_one();
    }

private:
    friend class Pool;

    Pool& pool;
    LinkedQueue<Job> jobs;     ///< guarded by the pool's lock
    bool isScheduled = false;  ///< in the ready queue or running; guarded by the pool's lock
};

void Pool::work() {
    std::unique_lock lock(mutex);
    for (;;) {
        strandArrived.wait(lock, [this] { return isStopping || !ready.empty(); });
        if (isStopping) return;
        std::shared_ptr<Strand> strand = std::move(ready.front());
        ready.pop_front();
        Job& job = strand->jobs.take();
        lock.unlock();
        strand->runJob(job);
        lock.lock();
        // Behind the others: no strand keeps the rest waiting for longer than one job.
        if (strand->jobs.empty())
            strand->isScheduled = false;
        else
            ready.push_back(std::move(strand));
    }
}

/// A thread that sleeps until the earliest deadline. A timer descriptor rather than a condition
/// variable, because the latter cannot wait by CLOCK_BOOTTIME.
class Timer {
public:
    Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    TimerQueue::Key add(Instant deadline, Suspended sleeper) {
        const std::lock_guard lock(mutex);
        const bool isEarliest = deadline < sleepers.next();
        const TimerQueue::Key key = sleepers.add(deadline, sleeper);
        if (isEarliest) wakeAt(deadline);
        return key;
    }

    /// Leaves the alarm as it is: waking once for nothing is cheaper than setting it twice.
    Suspended remove(TimerQueue::Key key) {
        const std::lock_guard lock(mutex);
        return sleepers.remove(key);
    }

    /// Wakes nobody from now on; requires that nobody adds sleepers any more. May be called again.
    void stop() {
        {
            const std::lock_guard lock(mutex);
            isStopping = true;
            sleepers.clear();
            wakeAt(Instant{});
        }
        if (thread.joinable()) thread.join();
    }

private:
    void run() {
        for (;;) {
            std::uint64_t expirations = 0;
            const ssize_t count = read(descriptor.get(), &expirations, sizeof expirations);
            require(count > 0 || errno == EINTR, "a timer descriptor can be read");
            const std::lock_guard lock(mutex);
            if (isStopping) return;
            while (const Suspended sleeper = sleepers.popDue(bootTime())) sleeper.resume();
            if (!sleepers.empty()) wakeAt(sleepers.next());
        }
    }

    /// Sets the alarm to `deadline`, at once if that has passed. Needs the lock.
    void wakeAt(Instant deadline) {
        using namespace std::chrono_literals;
        const Duration since = std::max<Duration>(deadline.time_since_epoch(), 1ns);  // 0 disarms
        const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
        itimerspec alarm{};
        alarm.it_value = {.tv_sec = seconds.count(), .tv_nsec = (since - seconds).count()};
        timerfd_settime(descriptor.get(), TFD_TIMER_ABSTIME, &alarm, nullptr);
    }

    static FileDescriptor makeDescriptor() {
        FileDescriptor made(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC));
        if (!made) throw std::system_error(errno, std::generic_category());
        return made;
    }

    const FileDescriptor descriptor = makeDescriptor();
    std::mutex mutex;
    TimerQueue sleepers;
    bool isStopping = false;
    std::thread thread{[this] { run(); }};
};

class ThreadRuntime final : public concurrency::Runtime {
public:
    explicit ThreadRuntime(std::size_t threads) : pool(threads) {}
    ~ThreadRuntime() override { abandon(); }

    std::shared_ptr<Executor> makeExecutor(std::string_view name) override {
        return std::make_shared<Pool::Strand>(pool, name);
    }
    Instant now() const noexcept override { return bootTime(); }
    Date date() const noexcept override { return std::chrono::system_clock::now(); }

private:
    TimerQueue::Key addSleeper(Instant deadline, Suspended sleeper) override {
        return timer.add(deadline, sleeper);
    }
    Suspended removeSleeper(TimerQueue::Key key) override { return timer.remove(key); }
    std::optional<TimerQueue::Key> block(Duration duration, const concurrency::CancelToken& token,
                                         Suspended) override {
        blockThread(duration, token);
        return std::nullopt;
    }
    void stop() noexcept override {
        // The pool first: a job that goes to sleep sets the alarm, and could so undo the one that
        // ends the timer's thread.
        pool.stop();
        timer.stop();
    }

    Pool pool;
    Timer timer;
};

}  // namespace

std::unique_ptr<concurrency::Runtime> makeThreadRuntime(std::size_t threads) {
    return std::make_unique<ThreadRuntime>(threads);
}

}  // namespace airflow::platform
