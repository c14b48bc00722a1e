// A simulated process that meets a bug, in the process that simulates it.
#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Require.h"
#include "concurrency/StopGuard.h"
#include "concurrency/TaskScope.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// An actor that meets a bug.
class Faulty final : public Actor {
public:
    using Actor::Actor;

    Task<void> meetBug() {
        require(false, "the actor is right");
        co_return;
    }
};

Task<void> sleep(Runtime& runtime) {
    (void)co_await runtime.sleepFor(Duration::max());
}

Task<void> leaveUnjoined(Runtime& runtime) {
    TaskScope scope(runtime);
    scope.spawn("sleeping", sleep(runtime));
    co_return;
}

class StopGuardTest : public testing::Test, public StopObserver {
protected:
    StopGuardTest() { runtime.reportStops(*this); }
    ~StopGuardTest() override { runtime.abandon(); }

    static Task<void> meetBug() {
        require(false, "this\nholds");
        co_return;
    }
    static Task<void> throwError() {
        throw std::runtime_error("no such luck");
        co_return;
    }
    /// `tracer` is gone when the frame is.
    static Task<void> await(StopGuardTest& test, Task<void> work, std::shared_ptr<int> tracer) {
        co_await std::move(work);
        test.events.push_back("went on with " + std::to_string(tracer.use_count()));
    }
    static Task<void> note(StopGuardTest& test, std::string what) {
        test.events.push_back(std::move(what));
        co_return;
    }

    void processStops(std::string_view violation) noexcept override {
        events.emplace_back(violation);
        runtime.halt();
    }

    simulation::SimulatedRuntime runtime;
    std::vector<std::string> events;
    std::shared_ptr<int> tracer = std::make_shared<int>();
};

TEST_F(StopGuardTest, aBugIsReportedInOneLineAndUnwindsItsTask) {
    runtime.detach("bug", await(*this, meetBug(), tracer));
    runtime.detach("later", note(*this, "something else ran"));
    runtime.settle();
    EXPECT_THAT(events, ElementsAre("A bug: expected that this?holds."));
    EXPECT_EQ(tracer.use_count(), 1);
}

TEST_F(StopGuardTest, aTaskThatWaitsForAnotherExecutorStaysWhereItWaits) {
    Faulty actor(runtime.makeExecutor("actor"));
    runtime.detach("outer", await(*this, actor.meetBug(), tracer));
    runtime.settle();
    EXPECT_THAT(events, ElementsAre("A bug: expected that the actor is right."));
    EXPECT_GT(tracer.use_count(), 1);
    runtime.abandon();
    EXPECT_EQ(tracer.use_count(), 1);
}

TEST_F(StopGuardTest, anExceptionThatLeavesATaskIsABugToo) {
    runtime.detach("error", await(*this, throwError(), tracer));
    runtime.detach("later", note(*this, "something else ran"));
    runtime.settle();
    EXPECT_THAT(events, ElementsAre("A bug: nobody caught an exception: no such luck"));
    EXPECT_EQ(tracer.use_count(), 1);
}

TEST_F(StopGuardTest, aScopeSeesTheEndOfATaskThatWasStopped) {
    TaskScope scope(runtime);
    scope.spawn("bug", meetBug());
    runtime.settle();
    EXPECT_EQ(scope.running(), 0);
}

TEST_F(StopGuardTest, theNextProcessRunsWithItsOwn) {
    runtime.detach("bug", meetBug());
    runtime.settle();
    simulation::SimulatedRuntime next;
    next.detach("next", note(*this, "the next one ran"));
    next.settle();
    EXPECT_THAT(events, ElementsAre("A bug: expected that this?holds.", "the next one ran"));
}

using StopGuardDeathTest = StopGuardTest;

TEST_F(StopGuardDeathTest, whatIsNoJobOfTheSimulatedProcessAborts) {
    EXPECT_DEATH(require(false, "a test is right"), "^A bug: expected that a test is right\\.\n$");
    runtime.detach("bug", meetBug());
    runtime.settle();
    EXPECT_DEATH(require(false, "a test is right"), "^A bug: expected that a test is right\\.\n$");
    simulation::SimulatedRuntime other;
    other.detach("bug", meetBug());
    EXPECT_DEATH(other.settle(), "^A bug: expected that this\\?holds\\.\n$");
}

TEST_F(StopGuardDeathTest, whereNothingCanBeThrownABugAborts) {
    runtime.detach("bug", leaveUnjoined(runtime));
    EXPECT_DEATH(runtime.settle(), "a scope is joined before it is destroyed");
    EXPECT_THAT(events, IsEmpty());
}

}  // namespace
}  // namespace airflow::concurrency
