#include <gmock/gmock.h>

#include <string>

#include "concurrency/Stream.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using namespace concurrency;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class Reader : public Actor {
public:
    explicit Reader(Runtime& runtime) : Actor(runtime.makeExecutor("the reader")) {}
    static constexpr int waitLine = __LINE__ + 1;
    Task<void> readOne() { co_await stream.next(); }
    Stream<int> stream;
};

constexpr int callLine = __LINE__ + 2;
Task<void> callReader(Reader* reader) {
    co_await reader->readOne();
}
Task<void> sleepLong(Runtime& runtime) {
    co_await runtime.sleepFor(25h);
}
Task<void> tickForEver(Runtime& runtime) {
    for (;;) co_await runtime.sleepFor(1s);
}
Task<void> spinForEver(Runtime& runtime, CancelToken token) {
    for (;;) co_await runtime.sleepFor(1s, token);
}

class StuckTest : public testing::Test {
protected:
    ~StuckTest() override { runtime.abandon(); }

    std::string whyStuck(Task<void> task) {
        try {
            runtime.run(std::move(task));
        } catch (const Stuck& stuck) {
            return stuck.what();
        }
        return "it ended";
    }

    SimulatedRuntime runtime;
    Reader reader{runtime};
};

TEST_F(StuckTest, aTaskThatCanNeverEndIsReportedWithThePlaceWhereItWaits) {
    EXPECT_THAT(
        whyStuck(callReader(&reader)),
        AllOf(StartsWith("Stuck: nothing can ever happen again. Pending:\nrun:\n"),
              HasSubstr("StuckTest.cpp:" + std::to_string(callLine) + " in "),
              HasSubstr("callReader"),
              HasSubstr("StuckTest.cpp:" + std::to_string(Reader::waitLine) + " in "),
              HasSubstr("readOne"), HasSubstr("Stream.h:"), EndsWith(" on executor the reader\n")));
}

TEST_F(StuckTest, aTaskThatGotStuckMayStillEndLater) {
    EXPECT_THAT(whyStuck(callReader(&reader)), StartsWith("Stuck"));
    reader.stream.send(1);
    runtime.settle();
    EXPECT_EQ(runtime.pending(), "");
}

TEST_F(StuckTest, othersThatTickDoNotHideIt) {
    runtime.detach("ticking", tickForEver(runtime));
    EXPECT_THAT(whyStuck(callReader(&reader)), StartsWith("Stuck: the task takes too long"));
    EXPECT_EQ(runtime.now().time_since_epoch(), 24h);
}

TEST_F(StuckTest, aRunMayTakeItsLimitAndNoLonger) {
    runtime.run(sleepLong(runtime), 25h);
    EXPECT_THROW(runtime.run(sleepLong(runtime), 25h - 1ns), Stuck);
}

TEST_F(StuckTest, aTaskThatSpinsWhileTimeStandsStillIsReported) {
    CancelSource source;
    source.cancel();
    runtime.limitJobs(1000);
    EXPECT_THAT(whyStuck(spinForEver(runtime, source.token())),
                StartsWith("Stuck: time stands still while tasks spin."));
}

TEST_F(StuckTest, whatHasNotRunYetIsListedToo) {
    runtime.detach("late", callReader(&reader));
    EXPECT_EQ(runtime.pending(), "late: has not started\n");
    runtime.settle();
    EXPECT_THAT(runtime.pending(), AllOf(StartsWith("late:\n"), HasSubstr("readOne")));
}

}  // namespace
}  // namespace airflow::simulation
