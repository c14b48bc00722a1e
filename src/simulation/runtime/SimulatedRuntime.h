// SimulatedRuntime: one thread, virtual time, and a seed that decides who runs next.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "concurrency/Runtime.h"
#include "concurrency/StopGuard.h"
#include "simulation/runtime/Fingerprint.h"

namespace airflow::simulation {

/// Nothing that a run waits for can happen any more, or it does not happen in time. what() lists
/// the pending tasks and where each one waits.
class Stuck : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Runs the whole program deterministically: the same choices give the same run.
///
/// Each executor keeps its order, as in production; which executor's turn it is, is chosen: in
/// order, by a seed, or by the test. So other seeds explore other legal interleavings. Time stands
/// still while anything can run, and nothing ever waits for real. Not thread-safe: everything,
/// sends and cancellations too, happens on the thread that drives it.
class SimulatedRuntime final : public concurrency::Runtime {
public:
    /// Picks one of `candidates` executors that have work: an index below `candidates`, which is at
    /// least 2. They are numbered in the order in which they got work. A test that backtracks over
    /// its own answers sees every schedule.
    using Chooser = std::function<std::size_t(std::size_t candidates)>;

    /// Seed 0 is in order, without a chooser: executors take turns, each with one job.
    [[nodiscard]] static Chooser chooserFor(std::uint64_t seed);
    explicit SimulatedRuntime(std::uint64_t seed = 0);
    explicit SimulatedRuntime(Chooser chooser);
    ~SimulatedRuntime() override;

    std::shared_ptr<concurrency::Executor> makeExecutor(std::string_view name) override;
    concurrency::Instant now() const noexcept override { return time; }
    /// Begins at 2026-01-01 00:00:00 UTC and goes with time, apart from jumps.
    concurrency::Date date() const noexcept override;

    /// Sets the wall clock, as a person or a time server does. Sleeps do not notice.
    void setDate(concurrency::Date date) noexcept;
    void jumpDate(concurrency::Seconds difference) noexcept { setDate(date() + difference); }

    /// Runs whatever can run now, without moving time.
    void settle();
    /// Moves time forward, stopping at every deadline on the way, as a running machine does.
    void advance(concurrency::Duration duration);
    /// Moves time forward in the same way, and runs nothing yet of what is due at its end: that
    /// comes together with what the test does then.
    void approach(concurrency::Duration duration);
    /// Moves time forward in one step, past several deadlines at once: a machine that slept.
    void leap(concurrency::Duration duration);

    /// Runs `task` to its end, moving time whenever nothing else can run, and then settles. Throws
    /// what the task throws, or Stuck when it cannot end or takes more than `limit`.
    template <typename T>
    T run(concurrency::Task<T> task, concurrency::Duration limit = std::chrono::hours(24)) {
        // Shared, because a task that got stuck may still be there when this function is not.
        const auto outcome = std::make_shared<Outcome<T>>();
        detach("run", fulfil(std::move(task), outcome));
        runUntil(outcome->isKnown, limit);
        if (outcome->error) std::rethrow_exception(outcome->error);
        if constexpr (!std::is_void_v<T>) return std::move(*outcome->value);
    }

    /// Runs nothing any more, not even in the middle of a settle(): what a process is that has
    /// ended. Time stands still, except for leap(). May be called from a job.
    void halt() noexcept { isHalted = true; }
    [[nodiscard]] bool hasHalted() const noexcept { return isHalted; }
    /// Calls `interruption` once, between two jobs, when `jobs` more have run.
    void afterJobs(std::uint64_t jobs, std::function<void()> interruption) {
        interruptions.emplace(jobCount + jobs, std::move(interruption));
    }

    /// From now on a bug that a job meets aborts nothing: `observer`, which halts this runtime, is
    /// told, and the job is left. It has to be there as long as jobs run.
    void reportStops(concurrency::StopObserver& observer) noexcept { stopObserver = &observer; }
    /// For a call that does not return before `instant`: the executor of the running job does
    /// nothing else until then, and whatever the job still wakes or begins to wait for is put off
    /// as long. What it reads is of the present moment. Called from a job.
    void holdJobUntil(concurrency::Instant instant);

    /// How many jobs may run before time has to move; more is a task that spins instead of
    /// sleeping, and makes whoever drives this runtime throw Stuck.
    void limitJobs(std::uint64_t jobsAtOneTime) noexcept { jobLimit = jobsAtOneTime; }

    /// Every pending background task by name, the oldest first, each followed by the places at
    /// which it and the tasks that it awaits are suspended, from the outside in.
    [[nodiscard]] std::string pending() const;

    /// Depends on every job run, every movement of time and everything recorded: equal for equal
    /// runs.
    [[nodiscard]] std::uint64_t fingerprint() const noexcept { return history.value(); }
    /// Adds `event` to the fingerprint, so that runs that differ in it differ.
    void record(std::uint64_t event) noexcept { history.mix(event); }

private:
    class SimulatedExecutor;

    template <typename T>
    struct Outcome {
        bool isKnown = false;
        std::exception_ptr error;
        std::optional<std::conditional_t<std::is_void_v<T>, std::monostate, T>> value;
    };

    template <typename T>
    static concurrency::Task<void> fulfil(concurrency::Task<T> task,
                                          std::shared_ptr<Outcome<T>> outcome) {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(task);
            } else {
                auto result = co_await std::move(task);
                outcome->value.emplace(std::move(result));
            }
        } catch (...) {
            outcome->error = std::current_exception();
        }
        outcome->isKnown = true;
    }

    concurrency::TimerQueue::Key addSleeper(concurrency::Instant deadline,
                                            concurrency::Suspended sleeper) override;
    concurrency::Suspended removeSleeper(concurrency::TimerQueue::Key key) override;
    std::optional<concurrency::TimerQueue::Key> block(concurrency::Duration duration,
                                                      const concurrency::CancelToken& token,
                                                      concurrency::Suspended sleeper) override;
    void stop() noexcept override;

    bool runOneJob();
    void interrupt();
    void runUntil(const bool& isDone, concurrency::Duration limit);
    void moveTimeTo(concurrency::Instant instant);
    [[noreturn]] void fail(std::string reason) const;

    Chooser choose;  ///< empty: in order
    concurrency::Instant time{};
    concurrency::Date dateAtStart;
    concurrency::TimerQueue timers;
    /// Executors that have work and are not blocked.
    concurrency::LinkedQueue<SimulatedExecutor> ready;
    SimulatedExecutor* running = nullptr;           ///< whose job is running
    std::optional<concurrency::Instant> heldUntil;  ///< of the running job, if it is held
    std::uint64_t executorCount = 0;
    std::uint64_t jobCount = 0;
    std::multimap<std::uint64_t, std::function<void()>> interruptions;  ///< by job count
    bool isHalted = false;
    concurrency::StopObserver* stopObserver = nullptr;
    std::uint64_t jobsAtThisTime = 0;  ///< since time moved, or the test last asked for work
    std::uint64_t jobLimit = 20'000'000;
    Fingerprint history;
    bool isStopped = false;
};

}  // namespace airflow::simulation
