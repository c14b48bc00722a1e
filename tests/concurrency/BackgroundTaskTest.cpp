#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/Ledger.h"
#include "concurrency/TaskScope.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;
using testing::IsEmpty;

class BackgroundTaskTest : public testing::Test {
protected:
    ~BackgroundTaskTest() override { runtime.abandon(); }

    /// Ticks every second until it is cancelled.
    Task<void> tick(CancelToken token) {
        while (!token.isRequested()) {
            co_await runtime.sleepFor(1s, token);
            ++ticks;
        }
    }
    auto ticking() {
        return [this](CancelToken token) { return tick(std::move(token)); };
    }
    Task<void> count(std::string name) {
        for (int i = 1; i <= 3; ++i) {
            events.push_back(name + std::to_string(i));
            co_await runtime.sleepFor(0s);
        }
    }
    Task<void> joinAndTell(TaskScope* scope) {
        co_await scope->join();
        events.push_back("joined");
    }
    Task<void> spawnAnother(TaskScope* scope) {
        scope->spawn("child", sleep(2s));
        co_await runtime.sleepFor(1s);
    }
    Task<void> sleep(Duration duration) { co_await runtime.sleepFor(duration); }

    SimulatedRuntime runtime;
    int ticks = 0;
    std::vector<std::string> events;
};

TEST_F(BackgroundTaskTest, goesOnWhenItsHandleIsDropped) {
    {
        const BackgroundTask handle = runtime.detach("ticking", ticking());
    }
    runtime.advance(3s);
    EXPECT_EQ(ticks, 3);
}

TEST_F(BackgroundTaskTest, isCancelledByItsHandle) {
    const BackgroundTask handle = runtime.detach("ticking", ticking());
    runtime.advance(2s);
    EXPECT_FALSE(handle.isCancelled());
    handle.cancel();
    EXPECT_TRUE(handle.isCancelled());
    runtime.settle();
    EXPECT_EQ(ticks, 3);  // the sleep ended early, and then the task asked
    EXPECT_EQ(runtime.pending(), "");
    handle.cancel();
}

TEST_F(BackgroundTaskTest, thatIsCancelledBeforeItRunsFindsOut) {
    runtime.detach("ticking", ticking()).cancel();
    runtime.advance(10s);
    EXPECT_EQ(ticks, 0);
    EXPECT_EQ(runtime.pending(), "");
}

TEST_F(BackgroundTaskTest, interleavesWithOthers) {
    runtime.detach("a", count("a"));
    runtime.detach("b", count("b"));
    runtime.settle();
    EXPECT_THAT(events, ElementsAre("a1", "b1", "a2", "b2", "a3", "b3"));
}

TEST_F(BackgroundTaskTest, keepsItsBodyUntilItEnds) {
    const auto token = std::make_shared<int>(0);
    runtime.detach("holding", [this, token](CancelToken) { return sleep(1s); });
    runtime.settle();
    EXPECT_EQ(token.use_count(), 2);
    runtime.advance(1s);
    EXPECT_EQ(token.use_count(), 1);
}

Task<void> throwAtOnce() {
    throw std::runtime_error("nobody catches this");
    co_return;
}

TEST_F(BackgroundTaskTest, thatThrowsEndsTheProcess) {
    EXPECT_DEATH(
        {
            runtime.detach("throwing", throwAtOnce());
            runtime.settle();
        },
        "");
}

TEST_F(BackgroundTaskTest, isCountedByItsScope) {
    TaskScope scope(runtime);
    scope.spawn("one", sleep(1s));
    scope.spawn("two", sleep(2s));
    const BackgroundTask three = scope.spawn("three", ticking());
    EXPECT_EQ(scope.running(), 3);
    runtime.advance(1s);
    EXPECT_EQ(scope.running(), 2);
    three.cancel();
    runtime.advance(1s);
    EXPECT_EQ(scope.running(), 0);
}

TEST_F(BackgroundTaskTest, isJoinedWithAllItStarted) {
    TaskScope scope(runtime);
    scope.spawn("parent", spawnAnother(&scope));
    runtime.detach("join", joinAndTell(&scope));
    runtime.advance(2s - 1ns);
    EXPECT_THAT(events, IsEmpty());
    runtime.advance(1ns);
    EXPECT_THAT(events, ElementsAre("joined"));
}

TEST_F(BackgroundTaskTest, joiningAnEmptyScopeTakesNoTime) {
    TaskScope scope(runtime);
    runtime.run(scope.join());
    EXPECT_EQ(runtime.now().time_since_epoch(), 0s);
}

TEST_F(BackgroundTaskTest, aScopeThatIsNotJoinedEndsTheProcess) {
    EXPECT_DEATH(
        {
            TaskScope scope(runtime);
            scope.spawn("sleeping", sleep(1s));
        },
        "a scope is joined before it is destroyed");
}

}  // namespace
}  // namespace airflow::concurrency
