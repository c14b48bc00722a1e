// What happens to work that is pending when its runtime ends. Leaks are found by the address
// sanitizer; the tests themselves count objects that live in frames.
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "concurrency/Ledger.h"
#include "concurrency/Stream.h"
#include "concurrency/TaskScope.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;

using Tracer = std::shared_ptr<int>;  ///< its use count tells how many frames hold it

Task<void> sleepWith(Runtime& runtime, Tracer tracer, CancelToken token) {
    const Tracer local = tracer;
    co_await runtime.sleepFor(1h, token);
}

Task<void> blockWith(Runtime& runtime, Tracer tracer) {
    const Tracer local = tracer;
    co_await runtime.blockingSleep(1h);
}

Task<void> readWith(Stream<int> stream, Tracer tracer) {
    const Tracer local = tracer;
    co_await stream.next();
}

Task<void> joinWith(TaskScope* scope, Tracer tracer) {
    const Tracer local = tracer;
    co_await scope->join();
}

Task<void> awaitWith(Task<void> inner, Tracer tracer) {
    const Tracer local = tracer;
    co_await std::move(inner);
}

Task<void> callWith(Ledger* ledger, Tracer tracer) {
    const Tracer local = tracer;
    co_await ledger->writeAround("call", 1h);
}

/// Calls `action` when it is destroyed.
class AtEnd {
public:
    explicit AtEnd(std::function<void()> given) : action(std::move(given)) {}
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    ~AtEnd() { action(); }

private:
    std::function<void()> action;
};

Task<void> sleepAndThen(Runtime& runtime, std::function<void()> action) {
    const AtEnd atEnd(std::move(action));
    co_await runtime.sleepFor(1h);
}

class AbandonTest : public testing::Test {
protected:
    /// Everything that can be pending: asleep, blocked, reading, joining, in a call, not started.
    void startEverything() {
        runtime->detach("asleep", sleepWith(*runtime, tracer, source.token()));
        runtime->detach("blocked", blockWith(*runtime, tracer));
        runtime->detach("reading", readWith(stream, tracer));
        scope->spawn("counted", callWith(ledger.get(), tracer));
        runtime->detach("joining", joinWith(scope.get(), tracer));
        runtime->detach("nested", awaitWith(sleepWith(*runtime, tracer, {}), tracer));
        runtime->detach("body", [this](CancelToken token) {
            return sleepWith(*runtime, tracer, std::move(token));
        });
        runtime->advance(1s);
        runtime->detach("not started", sleepWith(*runtime, tracer, {}));
    }

    std::unique_ptr<SimulatedRuntime> runtime = std::make_unique<SimulatedRuntime>();
    std::unique_ptr<Ledger> ledger = std::make_unique<Ledger>(*runtime);
    std::unique_ptr<TaskScope> scope = std::make_unique<TaskScope>(*runtime);
    Stream<int> stream;
    CancelSource source;
    Tracer tracer = std::make_shared<int>(0);
};

TEST_F(AbandonTest, freesEverythingThatIsPending) {
    startEverything();
    EXPECT_GT(tracer.use_count(), 10);
    runtime->abandon();
    EXPECT_EQ(tracer.use_count(), 1);
    EXPECT_EQ(scope->running(), 0);
    EXPECT_EQ(runtime->pending(), "");
}

TEST_F(AbandonTest, makesEveryLaterResumptionHarmless) {
    startEverything();
    runtime->abandon();
    stream.send(1);
    stream.close();
    source.cancel();
    runtime->advance(2h);
    EXPECT_THAT(ledger->lines, ElementsAre("call begins"));
}

TEST_F(AbandonTest, leavesAStreamThatAnotherRuntimeCanRead) {
    runtime->detach("reading", readWith(stream, tracer));
    runtime->settle();
    scope.reset();
    ledger.reset();
    runtime.reset();
    stream.send(1);

    SimulatedRuntime second;
    second.run(readWith(stream, tracer));
    EXPECT_EQ(second.pending(), "");
}

TEST_F(AbandonTest, isDoneByTheDestructorToo) {
    runtime->detach("asleep", sleepWith(*runtime, tracer, source.token()));
    runtime->detach("reading", readWith(stream, tracer));
    runtime->detach("calling", callWith(ledger.get(), tracer));
    runtime->settle();
    runtime->detach("not started", callWith(ledger.get(), tracer));
    scope.reset();
    ledger.reset();  // the wrong way round, and still harmless: the call holds no guard on it
    runtime.reset();
    EXPECT_EQ(tracer.use_count(), 1);
}

TEST_F(AbandonTest, freesTheYoungestFirst) {
    std::vector<std::string> freed;
    for (const char* name : {"old", "middle", "young"}) {
        runtime->detach(name, sleepAndThen(*runtime, [&freed, name] { freed.push_back(name); }));
    }
    runtime->settle();
    runtime->abandon();
    EXPECT_THAT(freed, ElementsAre("young", "middle", "old"));
}

TEST_F(AbandonTest, neverRunsWhatADestructorStarts) {
    runtime->detach("asleep", sleepAndThen(*runtime, [this] {
                        stream.send(1);
                        source.cancel();
                        runtime->detach("late", ledger->write("late"));
                    }));
    runtime->detach("reading", readWith(stream, tracer));
    runtime->detach("cancellable", sleepWith(*runtime, tracer, source.token()));
    runtime->settle();
    runtime->abandon();
    runtime->settle();
    EXPECT_THAT(ledger->lines, ElementsAre());
    EXPECT_EQ(runtime->pending(), "");
    EXPECT_EQ(tracer.use_count(), 1);
}

TEST_F(AbandonTest, mayHappenTwice) {
    startEverything();
    runtime->abandon();
    runtime->detach("late", sleepWith(*runtime, tracer, {}));
    runtime->abandon();
    EXPECT_EQ(tracer.use_count(), 1);
}

Task<void> abandonFromInside(Runtime& runtime) {
    runtime.abandon();
    co_return;
}

TEST_F(AbandonTest, isNotForAJob) {
    EXPECT_DEATH(runtime->run(abandonFromInside(*runtime)), "no job abandons the runtime");
}

Task<void> dropOwnActor(std::unique_ptr<Ledger>* ledger) {
    co_await (*ledger)->write("last");
    ledger->reset();
}

TEST_F(AbandonTest, anActorMayBeDroppedByATask) {
    runtime->run(dropOwnActor(&ledger));
    EXPECT_EQ(ledger, nullptr);
}

Task<void> drop(std::unique_ptr<Ledger>* ledger) {
    ledger->reset();
    co_return;
}

TEST_F(AbandonTest, whatIsQueuedForAnActorThatIsGoneNeverRuns) {
    runtime->detach("calling", callWith(ledger.get(), tracer));
    runtime->detach("dropping", drop(&ledger));  // before the call's turn on the actor has come
    runtime->settle();
    EXPECT_EQ(ledger, nullptr);
    EXPECT_GT(tracer.use_count(), 1);
    runtime->abandon();
    EXPECT_EQ(tracer.use_count(), 1);
}

}  // namespace
}  // namespace airflow::concurrency
