#include "DaemonHarness.h"

namespace airflow::daemon {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// A signal in every phase of the daemon's life.
class SignalPhases : public DaemonSchedule {
protected:
    static std::unique_ptr<DaemonHarness> on(const std::string& machine) {
        return std::make_unique<DaemonHarness>(GetParam(), machine);
    }
    static void terminate(DaemonHarness& harness) {
        harness.daemon->process.deliver(Signal::terminate);
    }
    static DaemonHarness::Connection connectAnd(DaemonHarness& harness,
                                                simulation::SimulatedConnection::Message message) {
        auto client = harness.daemon->listener.connect();
        client->send(std::move(message));
        harness.daemon->runtime.settle();
        return client;
    }
};

TEST_P(SignalPhases, beforeTheControllerIsArmedItHasItsDefaultAction) {
    for (const auto& [signal, status] :
         {std::pair(Signal::terminate, 143), std::pair(Signal::interrupt, 130)}) {
        const auto left = on("left-forced");
        left->begin();
        left->daemon->process.deliver(signal);
        left->advance(1s);
        EXPECT_EQ(left->end(), (ProcessEnd{.time = 0s, .status = status, .bySignal = true}));
        EXPECT_THAT(left->journal, IsEmpty());
        EXPECT_THAT(left->modes(), Each(FanMode::forced));
    }
}

TEST_P(SignalPhases, duringRecoveryItRestoresAndExitsWith143) {
    const auto left = on("left-forced");
    left->mac.smc().add({.operation = Fault::Operation::write, .latency = 100ms});
    left->begin();
    left->advance(50ms);
    terminate(*left);
    left->advance(5s);
    ASSERT_TRUE(left->end());
    EXPECT_EQ(left->end()->status, 143);
    EXPECT_FALSE(left->end()->bySignal);
    EXPECT_THAT(left->lines(), Contains(sigtermLine));
    EXPECT_THAT(left->lines(), Not(Contains(processExit)));
    EXPECT_THAT(left->modes(), Each(FanMode::automatic));
}

TEST_P(SignalPhases, atAnyStepOfTheStartItIsHandledFromThenOnThatTheHandlersStand) {
    bool wasHandled = false;
    for (std::uint64_t steps = 0; steps < 20; ++steps) {
        const auto left = on("left-forced");
        left->daemon->runtime.afterJobs(steps, [&left] { terminate(*left); });
        left->start();
        left->advance(5s);
        ASSERT_TRUE(left->end()) << steps;
        EXPECT_EQ(left->end()->status, 143);
        EXPECT_EQ(left->end()->time, 0s);
        EXPECT_TRUE(!wasHandled || !left->end()->bySignal) << steps;
        wasHandled = !left->end()->bySignal;
        EXPECT_EQ(std::ranges::count(left->lines(), sigtermLine), wasHandled ? 1 : 0);
        EXPECT_TRUE(wasHandled || left->journal.empty());
        left->newProcess(GetParam());  // a fan that recovery had not found yet may still be forced
        left->start();
        EXPECT_THAT(left->modes(), Each(FanMode::automatic)) << steps;
    }
    EXPECT_TRUE(wasHandled);
}

TEST_P(SignalPhases, inTheMiddleOfAClaimItLeavesNoFanForced) {
    for (const Duration later : {0ms, 50ms, 100ms, 290ms, 300ms, 350ms}) {
        const auto harness = on("unlock");
        harness->start();
        int replies = 0;
        const auto client = connectAnd(*harness, [&replies](FanHelperService& service) {
            service.fullBlast([&replies](std::int64_t) { ++replies; });
        });
        harness->advance(later);
        terminate(*harness);
        harness->advance(5s);
        EXPECT_EQ(harness->end(), (ProcessEnd{.time = later, .status = 143}));
        EXPECT_THAT(harness->modes(), Each(FanMode::automatic)) << later.count();
        EXPECT_LE(replies, 1);
        EXPECT_THAT(harness->lines(), ElementsAre(listening, sigtermLine));
    }
}

TEST_P(SignalPhases, inTheMiddleOfAReleaseItWaitsForTheRestoration) {
    const auto harness = on("laptop");
    const auto client = harness->startAndHold();
    harness->mac.smc().add({.key = "F1Md", .value = 0, .latency = 1s});
    client->send([](FanHelperService& service) { service.automatic([](std::int64_t) {}); });
    harness->advance(500ms);
    terminate(*harness);
    harness->advance(10s);
    EXPECT_EQ(harness->end(), (ProcessEnd{.time = 3s, .status = 143}));
    EXPECT_THAT(harness->modes(), Each(FanMode::automatic));
}

TEST_P(SignalPhases, betweenTheAnswerToAnUpgradeAndTheEndItDecidesTheStatus) {
    const auto harness = on("laptop");
    const auto client = harness->startAndHold();
    int replies = 0;
    client->send([&replies](FanHelperService& service) {
        service.shutdownForUpgrade([&replies] { ++replies; });
    });
    harness->advance(100ms);
    EXPECT_EQ(replies, 1);
    terminate(*harness);
    harness->advance(1s);
    EXPECT_EQ(harness->end(), (ProcessEnd{.time = 1100ms, .status = 143}));
    EXPECT_THAT(harness->lines(), ElementsAre(listening, sigtermLine));
}

TEST_P(SignalPhases, whileTheExitOfAnUpgradeRestoresItChangesNothing) {
    const auto harness = on("laptop");
    const auto client = harness->startAndHold();
    harness->mac.smc().add({.from = 1100ms, .key = "F0Md", .value = 0, .latency = 1s});
    client->send([](FanHelperService& service) { service.shutdownForUpgrade([] {}); });
    harness->advance(500ms);
    terminate(*harness);
    harness->advance(5s);
    EXPECT_EQ(harness->end(), (ProcessEnd{.time = 2200ms, .status = 0}));
    EXPECT_THAT(harness->lines(), ElementsAre(listening, processExit));
}

TEST_P(SignalPhases, onAMachineWithoutFansItExitsAsEverywhere) {
    const auto harness = on("fanless");
    harness->start();
    terminate(*harness);
    harness->advance(1s);
    EXPECT_EQ(harness->end(), (ProcessEnd{.time = 0s, .status = 143}));
    EXPECT_THAT(harness->lines(), ElementsAre(listening, sigtermLine));
}

INSTANTIATE_TEST_SUITE_P(Seeds, SignalPhases, testing::Range(std::uint64_t{0}, std::uint64_t{21}));

// The restoration of an exit first finds the fans that recovery has not found yet.
TEST(SignalDuringRecovery, alsoGivesBackTheFansThatRecoveryHasNotFoundYet) {
    DaemonHarness left(0, "left-forced");
    left.mac.smc().add({.key = "FNum", .operation = Fault::Operation::read, .latency = 100ms});
    left.begin();
    left.advance(50ms);
    left.daemon->process.deliver(Signal::terminate);
    left.advance(1s);
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 100ms, .status = 143}));
    EXPECT_THAT(left.modes(), Each(FanMode::automatic));
    EXPECT_THAT(left.lines(), ElementsAre(sigtermLine));
}

TEST(SignalDuringRecovery, thatTheSMCHoldsUpEndsAfterThreeSeconds) {
    DaemonHarness left(0, "left-forced");
    left.mac.smc().add({.key = "FNum", .operation = Fault::Operation::read, .latency = 5s});
    left.begin();
    left.advance(1s);
    left.daemon->process.deliver(Signal::terminate);
    left.advance(10s);
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 4s, .status = 143}));
}

// A slow recovery that succeeds after the signal must not say that clients are served.
TEST(SignalDuringRecovery, isTheEndOfTheStart) {
    DaemonHarness left(0, "left-forced");
    left.mac.smc().add({.key = "F1Md", .value = 0, .latency = 1s});
    left.begin();
    left.advance(500ms);
    left.daemon->process.deliver(Signal::terminate);
    left.advance(10s);
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 2s, .status = 143}));
    EXPECT_THAT(left.modes(), Each(FanMode::automatic));
    EXPECT_THAT(left.lines(), ElementsAre(sigtermLine));
}

// The exit of a start that fails while a signal's restoration runs waits for it.
TEST(SignalDuringRecovery, ofAStartThatFailsMeanwhileDecidesTheStatusAfterTheRestoration) {
    DaemonHarness left(0, "left-forced");
    left.mac.smc().add(
        {.until = 350ms, .key = "F0Md", .value = 0, .result = 0x86, .latency = 400ms});
    left.mac.smc().add({.key = "F0Md", .value = 0, .latency = 700ms});
    left.begin();
    left.advance(300ms);
    left.daemon->process.deliver(Signal::terminate);
    left.advance(10s);
    ASSERT_TRUE(left.end());
    EXPECT_EQ(left.end()->status, 143);
    EXPECT_THAT(left.modes(), Each(FanMode::automatic));
    EXPECT_THAT(left.lines(), ElementsAre(sigtermLine));
}

}  // namespace
}  // namespace airflow::daemon
