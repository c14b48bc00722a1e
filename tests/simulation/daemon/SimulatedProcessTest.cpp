#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

#include "simulation/daemon/SimulatedProcess.h"

namespace airflow::simulation {
namespace {

using concurrency::Task;
using daemon::Signal;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class SimulatedProcessTest : public testing::TestWithParam<std::uint64_t> {
protected:
    ~SimulatedProcessTest() override { runtime.abandon(); }

    static Task<void> note(SimulatedProcessTest& test, std::string what,
                           concurrency::Duration took) {
        test.happened.push_back(what + " begins");
        co_await test.runtime.blockingSleep(took);
        test.happened.push_back(what + " ends");
    }
    static Task<void> noteAndExit(SimulatedProcessTest& test, std::string what, int status) {
        co_await note(test, std::move(what), 1s);
        co_await test.process.exit(status);
        test.happened.emplace_back("came back from exit");
    }
    void exit(int status) { runtime.detach("exit", process.exit(status)); }
    auto handler(std::string what, concurrency::Duration took = {}) {
        return [this, what, took] { return note(*this, what, took); };
    }

    SimulatedRuntime runtime{GetParam()};
    SimulatedProcess process{runtime};
    std::vector<std::string> happened;
};

TEST_P(SimulatedProcessTest, livesUntilItExits) {
    EXPECT_FALSE(process.end());
    runtime.advance(2s);
    exit(7);
    runtime.settle();
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 2s, .status = 7}));
    EXPECT_TRUE(runtime.hasHalted());
}

TEST_P(SimulatedProcessTest, exitHandlersRunOneAfterTheOtherBeforeTheEnd) {
    process.atExit(handler("first", 1s));
    process.atExit(handler("second", 1s));
    exit(0);
    runtime.advance(1500ms);
    EXPECT_THAT(happened, ElementsAre("first begins", "first ends", "second begins"));
    EXPECT_FALSE(process.end());
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 2s, .status = 0}));
}

TEST_P(SimulatedProcessTest, ofTwoExitsTheFirstOnesStatusCountsAndHandlersRunOnce) {
    process.atExit(handler("handler", 1s));
    exit(3);
    runtime.advance(500ms);
    exit(4);
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 1s, .status = 3}));
    EXPECT_THAT(happened, ElementsAre("handler begins", "handler ends"));
}

TEST_P(SimulatedProcessTest, exitDoesNotComeBack) {
    process.handle(Signal::terminate, [this] { return noteAndExit(*this, "handler", 143); });
    process.deliver(Signal::terminate);
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 1s, .status = 143}));
    EXPECT_THAT(happened, ElementsAre("handler begins", "handler ends"));
}

TEST_P(SimulatedProcessTest, aSignalWithoutAHandlerEndsItAtOnce) {
    process.atExit(handler("handler"));
    process.deliver(Signal::terminate);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 0s, .status = 143, .bySignal = true}));
    runtime.settle();
    EXPECT_THAT(happened, IsEmpty());
}

TEST_P(SimulatedProcessTest, sigintWithoutAHandlerHasItsOwnStatus) {
    process.handle(Signal::terminate, handler("SIGTERM"));
    process.deliver(Signal::interrupt);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 0s, .status = 130, .bySignal = true}));
}

TEST_P(SimulatedProcessTest, aHandledSignalDoesNothingElse) {
    process.handle(Signal::terminate, handler("SIGTERM"));
    process.deliver(Signal::terminate);
    EXPECT_THAT(happened, IsEmpty());  // it is queued
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("SIGTERM begins", "SIGTERM ends"));
    EXPECT_FALSE(process.end());
}

TEST_P(SimulatedProcessTest, theSignalQueueIsSerial) {
    process.handle(Signal::terminate, handler("SIGTERM", 1s));
    process.handle(Signal::interrupt, handler("SIGINT", 1s));
    process.deliver(Signal::terminate);
    runtime.settle();
    process.deliver(Signal::interrupt);
    runtime.advance(999ms);
    EXPECT_THAT(happened, ElementsAre("SIGTERM begins"));
    runtime.advance(5s);
    EXPECT_THAT(happened,
                ElementsAre("SIGTERM begins", "SIGTERM ends", "SIGINT begins", "SIGINT ends"));
}

TEST_P(SimulatedProcessTest, killRunsNothingAnyMore) {
    process.atExit(handler("exit handler"));
    process.handle(Signal::terminate, handler("SIGTERM"));
    process.deliver(Signal::terminate);
    process.kill();
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 0s, .status = 137, .bySignal = true}));
    EXPECT_THAT(happened, IsEmpty());
}

TEST_P(SimulatedProcessTest, killCutsAnExitShort) {
    process.atExit(handler("exit handler", 1s));
    exit(0);
    runtime.advance(500ms);
    process.kill();
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 500ms, .status = 137, .bySignal = true}));
    EXPECT_THAT(happened, ElementsAre("exit handler begins"));
}

TEST_P(SimulatedProcessTest, abortRunsNothingAnyMore) {
    process.atExit(handler("exit handler"));
    process.handle(Signal::terminate, handler("SIGTERM"));
    process.deliver(Signal::terminate);
    process.abort();
    runtime.advance(5s);
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 0s, .status = 134, .bySignal = true}));
    EXPECT_TRUE(process.end()->isStop());
    EXPECT_THAT(happened, IsEmpty());
}

TEST_P(SimulatedProcessTest, onlyTheProcessItselfStopsItself) {
    EXPECT_FALSE((ProcessEnd{.status = 137, .bySignal = true}.isStop()));
    EXPECT_FALSE((ProcessEnd{.status = 134}.isStop()));
}

TEST_P(SimulatedProcessTest, endsOnce) {
    process.kill();
    runtime.advance(1s);
    process.deliver(Signal::terminate);
    process.kill();
    EXPECT_EQ(process.end(), (ProcessEnd{.time = 0s, .status = 137, .bySignal = true}));
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimulatedProcessTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::simulation
