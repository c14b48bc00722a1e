// The pool, with real threads and real time; what it must not do is found by the thread sanitizer.
#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/Stream.h"
#include "concurrency/TaskScope.h"
#include "platform/linux/ThreadRuntime.h"

namespace airflow::platform {
namespace {

using namespace std::chrono_literals;
using namespace concurrency;

class Counter : public Actor {
public:
    explicit Counter(Runtime& clock) : Actor(clock.makeExecutor("counter")), runtime(clock) {}

    Task<int> add(int amount) {
        EXPECT_TRUE(executor().isCurrent());
        value += amount;
        co_return value;
    }
    /// Adds one after each value of the stream.
    Task<void> addAll(Stream<int> stream) {
        for (;;) {
            const auto next = co_await stream.next();
            EXPECT_TRUE(executor().isCurrent());
            if (!next) co_return;
            value += *next;
        }
    }
    Task<void> addAfter(int amount, Duration pause) {
        co_await runtime.sleepFor(pause);
        EXPECT_TRUE(executor().isCurrent());
        value += amount;
    }
    Task<void> addBlocking(int amount, Duration pause) {
        value += amount;
        co_await runtime.blockingSleep(pause);
        EXPECT_TRUE(executor().isCurrent());
        value += amount;
    }
    int value = 0;

private:
    Runtime& runtime;
};

Task<void> hopOften(Counter* counter, int times) {
    for (int i = 0; i < times; ++i) co_await counter->add(1);
}

Task<void> hopAndSleep(Runtime& runtime, Counter* counter, int times) {
    for (int i = 0; i < times; ++i) {
        co_await counter->add(1);
        if (i % 50 == 0) co_await runtime.sleepFor(20us);
    }
}

/// Each pool test ends by joining; what a task found out is read afterwards.
class ThreadRuntimeTest : public testing::Test {
protected:
    std::unique_ptr<Runtime> owner = makeThreadRuntime(4);
    Runtime& runtime = *owner;
    Counter counter{runtime};
    TaskScope scope{runtime};
};

TEST_F(ThreadRuntimeTest, anActorRunsOneOperationAtATime) {
    for (int i = 0; i < 16; ++i) scope.spawn("hopping", hopAndSleep(runtime, &counter, 500));
    scope.joinBlocking();
    EXPECT_EQ(counter.value, 8000);
}

TEST_F(ThreadRuntimeTest, aMillionHopsKeepTheStackFlat) {
    scope.spawn("hopping", hopOften(&counter, 1'000'000));
    scope.joinBlocking();
    EXPECT_EQ(counter.value, 1'000'000);
}

Task<void> sleepAndMeasure(Runtime& runtime, Duration pause, Duration* slept) {
    const Instant start = runtime.now();
    co_await runtime.sleepFor(pause);
    *slept = runtime.now() - start;
}

TEST_F(ThreadRuntimeTest, aSleepIsNeverTooShort) {
    std::vector<Duration> slept(4);
    for (std::size_t i = 0; i < slept.size(); ++i) {
        scope.spawn("sleeping", sleepAndMeasure(runtime, (4 - i) * 1ms, &slept[i]));
    }
    scope.joinBlocking();
    for (std::size_t i = 0; i < slept.size(); ++i) EXPECT_GE(slept[i], (4 - i) * 1ms);
}

Task<void> sleepCancellably(Runtime& runtime, CancelToken token, std::atomic<int>* cancelled) {
    const Wake first = co_await runtime.sleepFor(10h, token);
    const Wake second = co_await runtime.sleepFor(10h, token);
    if (first == Wake::cancelled && second == Wake::cancelled) ++*cancelled;
}

TEST_F(ThreadRuntimeTest, cancellationWakesEverySleeper) {
    std::atomic<int> cancelled = 0;
    const CancelSource source;
    for (int i = 0; i < 20; ++i) {
        scope.spawn("sleeping", sleepCancellably(runtime, source.token(), &cancelled));
    }
    std::this_thread::sleep_for(2ms);
    source.cancel();
    scope.joinBlocking();
    EXPECT_EQ(cancelled, 20);
}

Task<void> sleepOnce(Runtime& runtime, CancelToken token, Duration pause) {
    co_await runtime.sleepFor(pause, token);
}

TEST_F(ThreadRuntimeTest, anExpiryAndACancellationAtTheSameTimeWakeOnce) {
    for (int i = 0; i < 200; ++i) {
        const BackgroundTask task = scope.spawn("sleeping", [this](CancelToken token) {
            return sleepOnce(runtime, std::move(token), 50us);
        });
        std::this_thread::sleep_for(50us);
        task.cancel();
    }
    scope.joinBlocking();
    EXPECT_EQ(scope.running(), 0);
}

TEST_F(ThreadRuntimeTest, aStreamTakesValuesFromManyThreads) {
    const Stream<int> stream;
    scope.spawn("adding", counter.addAll(stream));
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t) {
        senders.emplace_back([&stream] {
            for (int i = 0; i < 1000; ++i) stream.send(1);
        });
    }
    for (std::thread& sender : senders) sender.join();
    stream.close();
    scope.joinBlocking();
    EXPECT_EQ(counter.value, 3000);
}

/// Lets two threads meet; each waits for the other.
class Meeting {
public:
    void attend() {
        std::unique_lock lock(mutex);
        ++present;
        changed.notify_all();
        changed.wait(lock, [this] { return present == 2; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int present = 0;
};

Task<void> attend(Meeting* meeting) {
    meeting->attend();
    co_return;
}

TEST_F(ThreadRuntimeTest, backgroundTasksRunAtTheSameTime) {
    Meeting meeting;
    scope.spawn("one", attend(&meeting));
    scope.spawn("other", attend(&meeting));
    scope.joinBlocking();
}

/// Goes on blocking `counter`'s executor until the other actor has run.
Task<void> checkThatOthersRun(Counter* blocked, Counter* other, int* seenMeanwhile) {
    co_await other->add(1);
    *seenMeanwhile = co_await other->add(0);
    co_await blocked->add(1000);
}

TEST_F(ThreadRuntimeTest, aBlockingSleepBlocksItsOwnExecutorOnly) {
    Counter other(runtime);
    int seenMeanwhile = 0;
    scope.spawn("blocking", counter.addBlocking(1, 5ms));
    scope.spawn("checking", checkThatOthersRun(&counter, &other, &seenMeanwhile));
    scope.joinBlocking();
    EXPECT_EQ(seenMeanwhile, 1);
    EXPECT_EQ(counter.value, 1002);
}

TEST_F(ThreadRuntimeTest, aHandleMayBeDroppedWhileItsTaskRuns) {
    (void)scope.spawn("adding", [this](CancelToken) { return counter.addAfter(5, 1ms); });
    scope.joinBlocking();
    EXPECT_EQ(counter.value, 5);
}

TEST_F(ThreadRuntimeTest, theClocksAgreeWithTheSystem) {
    const Date before = std::chrono::system_clock::now();
    const Date date = runtime.date();
    const Date after = std::chrono::system_clock::now();
    EXPECT_LE(before, date);
    EXPECT_LE(date, after);
    const Instant first = runtime.now();
    EXPECT_LE(first, runtime.now());
}

Task<void> holdWhileReading(Stream<int> stream, std::shared_ptr<int> tracer) {
    const std::shared_ptr<int> local = tracer;
    co_await stream.next();
}

Task<void> holdWhileSleeping(Runtime& runtime, std::shared_ptr<int> tracer) {
    const std::shared_ptr<int> local = tracer;
    co_await runtime.sleepFor(10h);
}

Task<void> holdWhileHopping(Counter* counter, std::shared_ptr<int> tracer) {
    const std::shared_ptr<int> local = tracer;
    for (;;) co_await counter->add(1);
}

TEST(ThreadRuntimeEndTest, freesWhateverIsPending) {
    const auto tracer = std::make_shared<int>(0);
    const Stream<int> stream;
    for (int round = 0; round < 20; ++round) {
        const auto runtime = makeThreadRuntime(3);
        Counter counter(*runtime);
        TaskScope scope(*runtime);
        for (int i = 0; i < 10; ++i) {
            scope.spawn("reading", holdWhileReading(Stream<int>(), tracer));
            scope.spawn("sleeping", holdWhileSleeping(*runtime, tracer));
            scope.spawn("hopping", holdWhileHopping(&counter, tracer));
        }
        scope.spawn("reading", holdWhileReading(stream, tracer));
        std::this_thread::sleep_for(200us);
        runtime->abandon();
        EXPECT_EQ(tracer.use_count(), 1);
        EXPECT_EQ(scope.running(), 0);
    }
}

TEST(ThreadRuntimeEndTest, freesWhateverIsPendingWithoutBeingTold) {
    const auto tracer = std::make_shared<int>(0);
    {
        const auto runtime = makeThreadRuntime();
        runtime->detach("sleeping", holdWhileSleeping(*runtime, tracer));
        runtime->detach("reading", holdWhileReading(Stream<int>(), tracer));
    }
    EXPECT_EQ(tracer.use_count(), 1);
}

}  // namespace
}  // namespace airflow::platform
