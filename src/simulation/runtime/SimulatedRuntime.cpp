#include "simulation/runtime/SimulatedRuntime.h"

#include <algorithm>
#include <utility>

#include "simulation/runtime/Random.h"

namespace airflow::simulation {

using concurrency::Date;
using concurrency::Duration;
using concurrency::Executor;
using concurrency::Instant;
using concurrency::Job;
using concurrency::Promise;
using concurrency::requireOrAbort;
using concurrency::Seconds;
using concurrency::Suspended;
using concurrency::TimerQueue;

namespace {

/// Where a task waits. One that has no place yet was posted to its executor and not run.
std::string describe(const Promise& task) {
    const std::string executor = " on executor " + task.executor->name() + "\n";
    if (task.place.line() == 0) return "    queued" + executor;
    const std::string_view path = task.place.file_name();
    return "    at " + std::string(path.substr(path.rfind('/') + 1)) + ":" +
           std::to_string(task.place.line()) + " in " + task.place.function_name() + executor;
}

}  // namespace

class SimulatedRuntime::SimulatedExecutor final : public Executor {
public:
    SimulatedExecutor(SimulatedRuntime& owner, std::string_view name, std::uint64_t number)
        : Executor(name), id(number), runtime(owner) {}
    // What is still queued here is freed with its root.
    ~SimulatedExecutor() override {
        if (isReady) runtime.ready.remove(*this);
        if (hold) (void)runtime.timers.remove(*hold);
    }

    void post(Job& job) noexcept override {
        if (runtime.isStopped) return;
        if (&job == &holdEnd) {
            hold.reset();
        } else if (runtime.heldUntil) {
            runtime.timers.add(*runtime.heldUntil, {.job = &job, .executor = this});
        } else if (&job == blocker) {
            blocker = nullptr;
            jobs.pushFront(job);
        } else {
            jobs.pushBack(job);
        }
        becomeReady();
    }

    /// Lets no job run before `job` is posted.
    void blockUntilPosted(const Job& job) noexcept {
        blocker = &job;
        if (std::exchange(isReady, false)) runtime.ready.remove(*this);
    }

    /// Lets no job run before `instant`.
    void holdUntil(Instant instant) {
        if (hold && hold->first >= instant) return;
        if (hold) (void)runtime.timers.remove(*hold);
        hold = runtime.timers.add(instant, {.job = &holdEnd, .executor = this});
        if (std::exchange(isReady, false)) runtime.ready.remove(*this);
    }

    /// Runs the next job; requires that this was just taken from the ready queue. The job may
    /// destroy this executor, so all bookkeeping comes first.
    void runNext() noexcept {
        isReady = false;
        Job& job = jobs.take();
        becomeReady();
        SimulatedRuntime& owner = runtime;
        owner.running = this;
        runJob(job);
        owner.running = nullptr;
        owner.heldUntil.reset();
    }

    void forgetReady() noexcept { isReady = false; }

    SimulatedExecutor* next = nullptr;  ///< in the ready queue
    const std::uint64_t id;

private:
    void becomeReady() noexcept {
        if (isReady || blocker || hold || jobs.empty()) return;
        isReady = true;
        runtime.ready.pushBack(*this);
    }

    SimulatedRuntime& runtime;
    concurrency::LinkedQueue<Job> jobs;
    const Job* blocker = nullptr;  ///< the job whose blocking sleep is not over
    Job holdEnd;                   ///< stands for the end of a hold among the timers
    std::optional<TimerQueue::Key> hold;
    bool isReady = false;
};

SimulatedRuntime::Chooser SimulatedRuntime::chooserFor(std::uint64_t seed) {
    if (seed == 0) return {};
    return [random = Random(seed)](std::size_t candidates) mutable {
        return static_cast<std::size_t>(random.next() % candidates);
    };
}

SimulatedRuntime::SimulatedRuntime(std::uint64_t seed) : SimulatedRuntime(chooserFor(seed)) {}

SimulatedRuntime::SimulatedRuntime(Chooser chooser) : choose(std::move(chooser)) {
    using namespace std::chrono;
    dateAtStart = sys_days(2026y / January / 1);
}

SimulatedRuntime::~SimulatedRuntime() {
    abandon();
}

std::shared_ptr<Executor> SimulatedRuntime::makeExecutor(std::string_view name) {
    return std::make_shared<SimulatedExecutor>(*this, name, ++executorCount);
}

Date SimulatedRuntime::date() const noexcept {
    return dateAtStart + Seconds(time.time_since_epoch());
}

void SimulatedRuntime::setDate(Date date) noexcept {
    dateAtStart = date - Seconds(time.time_since_epoch());
}

TimerQueue::Key SimulatedRuntime::addSleeper(Instant deadline, Suspended sleeper) {
    return timers.add(heldUntil ? std::max(deadline, *heldUntil) : deadline, sleeper);
}

Suspended SimulatedRuntime::removeSleeper(TimerQueue::Key key) {
    return timers.remove(key);
}

std::optional<TimerQueue::Key> SimulatedRuntime::block(Duration duration,
                                                       const concurrency::CancelToken&,
                                                       Suspended sleeper) {
    static_cast<SimulatedExecutor*>(sleeper.executor)->blockUntilPosted(*sleeper.job);
    const Instant begin = heldUntil.value_or(time);
    const bool isForEver = duration > Instant::max() - begin;
    return addSleeper(isForEver ? Instant::max() : begin + duration, sleeper);
}

void SimulatedRuntime::holdJobUntil(Instant instant) {
    require(running, "only a running job is held");
    if (instant <= time) return;
    heldUntil = std::max(heldUntil.value_or(instant), instant);
    running->holdUntil(instant);
}

void SimulatedRuntime::stop() noexcept {
    isStopped = true;
    timers.clear();
    while (!ready.empty()) ready.take().forgetReady();
}

void SimulatedRuntime::interrupt() {
    while (!interruptions.empty() && interruptions.begin()->first <= jobCount) {
        const auto interruption = interruptions.extract(interruptions.begin());
        interruption.mapped()();
    }
}

bool SimulatedRuntime::runOneJob() {
    if (!interruptions.empty()) interrupt();
    if (isHalted) return false;
    while (const Suspended sleeper = timers.popDue(time)) sleeper.resume();
    if (ready.empty()) return false;
    ++jobCount;
    if (++jobsAtThisTime > jobLimit) fail("time stands still while tasks spin");
    const bool isChosen = choose && ready.size() > 1;
    SimulatedExecutor& executor = ready.take(isChosen ? choose(ready.size()) : 0);
    record(executor.id);
    const concurrency::StopGuard guard(stopObserver);
    executor.runNext();
    return true;
}

void SimulatedRuntime::moveTimeTo(Instant instant) {
    requireOrAbort(instant >= time, "time never goes back");
    time = instant;
    jobsAtThisTime = 0;
    record(static_cast<std::uint64_t>(time.time_since_epoch().count()));
}

void SimulatedRuntime::settle() {
    requireOrAbort(!Executor::isAnyCurrent(), "no job drives the runtime that it runs in");
    jobsAtThisTime = 0;
    while (runOneJob()) {
    }
}

void SimulatedRuntime::advance(Duration duration) {
    const Instant end = time + duration;
    settle();
    while (!isHalted && timers.next() <= end) {
        moveTimeTo(timers.next());
        settle();
    }
    if (!isHalted) moveTimeTo(end);
}

void SimulatedRuntime::approach(Duration duration) {
    const Instant end = time + duration;
    settle();
    while (!isHalted && timers.next() < end) {
        moveTimeTo(timers.next());
        settle();
    }
    if (!isHalted) moveTimeTo(end);
}

void SimulatedRuntime::leap(Duration duration) {
    moveTimeTo(time + duration);
    settle();
}

void SimulatedRuntime::runUntil(const bool& isDone, Duration limit) {
    requireOrAbort(!Executor::isAnyCurrent(), "no job drives the runtime that it runs in");
    const Instant end = time + limit;
    jobsAtThisTime = 0;
    while (!isDone) {
        if (runOneJob()) continue;
        if (timers.empty()) fail("nothing can ever happen again");
        if (timers.next() > end) fail("the task takes too long");
        moveTimeTo(timers.next());
    }
    settle();
}

std::string SimulatedRuntime::pending() const {
    std::string lines;
    pendingRoots().forEach([&lines](const Promise& root) {
        lines += root.executor->name() + (root.awaited ? ":\n" : ": has not started\n");
        for (const Promise* task = root.awaited; task; task = task->awaited)
            lines += describe(*task);
    });
    return lines;
}

void SimulatedRuntime::fail(std::string reason) const {
    throw Stuck("Stuck: " + reason + ". Pending:\n" + pending());
}

}  // namespace airflow::simulation
