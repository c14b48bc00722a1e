#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Ledger.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;
using testing::IsEmpty;

/// What a sleep returned, and when.
struct Waking {
    Wake wake;
    Duration at;

    bool operator==(const Waking&) const = default;
};

class SleepTest : public testing::Test {
protected:
    ~SleepTest() override { runtime.abandon(); }

    Task<void> sleep(Duration duration, CancelToken token = {}) {
        const Wake wake = co_await runtime.sleepFor(duration, token);
        wakings.push_back({wake, runtime.now().time_since_epoch()});
    }
    Task<void> sleepTwice(Duration duration, CancelToken token) {
        co_await sleep(duration, token);
        co_await sleep(duration, token);
    }
    void start(Task<void> task) {
        runtime.detach("sleeper", std::move(task));
        runtime.settle();
    }

    SimulatedRuntime runtime;
    CancelSource source;
    std::vector<Waking> wakings;
};

TEST_F(SleepTest, endsAtItsDeadlineAndNotBefore) {
    start(sleep(2s));
    runtime.advance(2s - 1ns);
    EXPECT_THAT(wakings, IsEmpty());
    runtime.advance(1ns);
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::elapsed, 2s}));
}

TEST_F(SleepTest, endsInTheOrderOfTheDeadlines) {
    start(sleep(3s));
    start(sleep(1s));
    start(sleep(2s));
    runtime.advance(10s);
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::elapsed, 1s}, Waking{Wake::elapsed, 2s},
                                     Waking{Wake::elapsed, 3s}));
}

TEST_F(SleepTest, ofNoLengthLetsOthersIn) {
    Ledger ledger(runtime);
    runtime.detach("a", ledger.writeAround("a", 0s));
    runtime.detach("b", ledger.writeAround("b", -5s));
    runtime.settle();
    EXPECT_THAT(ledger.lines, ElementsAre("a begins", "b begins", "a ends", "b ends"));
    EXPECT_EQ(runtime.now().time_since_epoch(), 0s);
}

Task<void> blockFor(simulation::SimulatedRuntime& runtime, Duration duration, CancelToken token,
                    std::optional<Duration>& end) {
    co_await runtime.blockingSleep(duration, token);
    end = runtime.now().time_since_epoch();
}

TEST_F(SleepTest, thatBlocksEndsEarlierWhenItIsCancelled) {
    std::optional<Duration> end;
    start(blockFor(runtime, 3s, source.token(), end));
    runtime.advance(1s);
    EXPECT_EQ(end, std::nullopt);
    source.cancel();
    runtime.settle();
    EXPECT_EQ(end, Duration(1s));
    runtime.advance(5s);
    EXPECT_EQ(end, Duration(1s));
}

TEST_F(SleepTest, thatBlocksIsOverAtOnceWhenItWasCancelledBefore) {
    std::optional<Duration> end;
    source.cancel();
    start(blockFor(runtime, 3s, source.token(), end));
    EXPECT_EQ(end, Duration(0s));
}

TEST_F(SleepTest, mayBeEndless) {
    runtime.advance(1s);
    start(sleep(Duration::max(), source.token()));
    runtime.advance(100'000h);
    EXPECT_THAT(wakings, IsEmpty());
    source.cancel();
    runtime.settle();
    EXPECT_EQ(wakings.front().wake, Wake::cancelled);
}

TEST_F(SleepTest, endsAtOnceWhenItIsCancelled) {
    start(sleep(10h, source.token()));
    runtime.advance(1s);
    source.cancel();
    EXPECT_THAT(wakings, IsEmpty());  // it is posted, never resumed inside cancel()
    runtime.settle();
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::cancelled, 1s}));
}

TEST_F(SleepTest, isCancelledInEveryTaskThatHoldsTheTokenAndInNoOther) {
    start(sleep(10s, source.token()));
    start(sleep(20s));
    start(sleep(30s, source.token()));
    source.cancel();
    source.cancel();
    runtime.settle();
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::cancelled, 0s}, Waking{Wake::cancelled, 0s}));
    runtime.advance(40s);
    EXPECT_EQ(wakings.size(), 3u);
    EXPECT_EQ(wakings.back(), (Waking{Wake::elapsed, 20s}));
}

TEST_F(SleepTest, thatEndedBeforeItWasCancelledHasElapsed) {
    start(sleep(1s, source.token()));
    runtime.advance(1s);
    source.cancel();
    runtime.settle();
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::elapsed, 1s}));
}

TEST_F(SleepTest, ofACancelledTaskEndsAtOnceEveryTime) {
    start(sleepTwice(5s, source.token()));
    source.cancel();
    runtime.settle();
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::cancelled, 0s}, Waking{Wake::cancelled, 0s}));
}

class Napper : public Actor {
public:
    explicit Napper(Runtime& clock) : Actor(clock.makeExecutor("napper")), runtime(clock) {}

    Task<void> nap(CancelToken token) {
        events.push_back("nap begins");
        co_await runtime.sleepFor(1h, token);
        EXPECT_TRUE(executor().isCurrent());
        events.push_back("nap ends");
    }
    Task<void> work() {
        events.push_back("work");
        co_return;
    }

    std::vector<std::string> events;

private:
    Runtime& runtime;
};

TEST_F(SleepTest, ofACancelledTaskStillLetsOthersIn) {
    Napper napper(runtime);
    source.cancel();
    runtime.detach("nap", napper.nap(source.token()));
    runtime.detach("work", napper.work());
    runtime.settle();
    EXPECT_THAT(napper.events, ElementsAre("nap begins", "work", "nap ends"));
    EXPECT_EQ(runtime.now().time_since_epoch(), 0s);
}

TEST_F(SleepTest, doesNotNoticeThatTheWallClockJumps) {
    start(sleep(10s));
    runtime.advance(4s);
    runtime.jumpDate(Seconds(3600));
    runtime.advance(1s);
    runtime.setDate(distantPast);
    runtime.advance(5s - 1ns);
    EXPECT_THAT(wakings, IsEmpty());
    runtime.advance(1ns);
    EXPECT_THAT(wakings, ElementsAre(Waking{Wake::elapsed, 10s}));
}

TEST(BlockingSleepTest, blocksItsOwnExecutorAndNoOther) {
    SimulatedRuntime runtime;
    Ledger blocked(runtime, "blocked");
    Ledger other(runtime, "other");
    runtime.detach("a", blocked.writeAroundBlocking("a", 40ms));
    runtime.detach("b", blocked.write("b"));
    runtime.detach("c", other.write("c"));
    runtime.advance(40ms - 1ns);
    EXPECT_THAT(blocked.lines, ElementsAre("a begins"));
    EXPECT_THAT(other.lines, ElementsAre("c"));
    runtime.advance(1ns);
    EXPECT_THAT(blocked.lines, ElementsAre("a begins", "a ends", "b"));
}

TEST(BlockingSleepTest, keepsItsPlaceBeforeWhatWasQueuedBeforeItBegan) {
    SimulatedRuntime runtime(7);
    Ledger ledger(runtime);
    // All three are queued before the first one runs.
    runtime.detach("a", ledger.writeAroundBlocking("a", 40ms));
    runtime.detach("b", ledger.writeAroundBlocking("b", 40ms));
    runtime.detach("c", ledger.writeAroundBlocking("c", 40ms));
    runtime.advance(1s);
    ASSERT_EQ(ledger.lines.size(), 6u);
    for (std::size_t i = 0; i < 6; i += 2) {
        const std::string& line = ledger.lines[i];
        EXPECT_TRUE(line.ends_with(" begins"));
        EXPECT_EQ(ledger.lines[i + 1], line.substr(0, 1) + " ends");
    }
}

TEST(BlockingSleepTest, takesTime) {
    SimulatedRuntime runtime;
    Ledger ledger(runtime);
    runtime.run(ledger.writeAroundBlocking("a", 40ms));
    runtime.run(ledger.writeAroundBlocking("b", 0ms));
    EXPECT_EQ(runtime.now().time_since_epoch(), 40ms);
    EXPECT_THAT(ledger.lines, ElementsAre("a begins", "a ends", "b begins", "b ends"));
}

}  // namespace
}  // namespace airflow::concurrency
