#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "daemon/SafetyHandlers.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

void sendShutdown(const DaemonHarness::Connection& client, int& replies) {
    client->send([&replies](FanHelperService& service) {
        service.shutdownForUpgrade([&replies] { ++replies; });
    });
}

class SafetyHandlersTest : public DaemonSchedule {
protected:
    /// The answer to the release of fan 0 takes this long.
    void slowRelease(Duration latency, Duration from = 0s) {
        harness.mac.smc().add({.from = from, .key = "F0Md", .value = 0, .latency = latency});
    }
    void deliver(Signal signal) { harness.daemon->process.deliver(signal); }

    DaemonHarness harness{GetParam()};
};

TEST_P(SafetyHandlersTest, sigtermRestoresAutoAndExitsWith143) {
    (void)harness.startAndHold();
    deliver(Signal::terminate);
    harness.advance(1s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1s, .status = 143}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigtermLine));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
    EXPECT_FALSE(harness.mac.forceTest());
}

TEST_P(SafetyHandlersTest, sigintRestoresAutoAndExitsWith130) {
    (void)harness.startAndHold();
    deliver(Signal::interrupt);
    harness.advance(1s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1s, .status = 130}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigintLine));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

TEST_P(SafetyHandlersTest, theLineIsWrittenBeforeTheFirstFanIsGivenBack) {
    (void)harness.startAndHold();
    harness.journal.clear();
    deliver(Signal::terminate);
    harness.advance(1s);
    EXPECT_THAT(harness.journal, ElementsAre(std::string("log ") + sigtermLine, "write Ftst=1",
                                             "write F0Md=0", "write F1Md=0", "write Ftst=0"));
}

TEST_P(SafetyHandlersTest, aSignalWhileNothingIsHeldRestoresAllTheSame) {
    harness.start();
    harness.mac.setMode(1, FanMode::forced);  // by somebody else
    deliver(Signal::terminate);
    harness.advance(1s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 0s, .status = 143}));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
}

TEST_P(SafetyHandlersTest, aSecondSigtermWaitsForTheFirstAndNeverRuns) {
    (void)harness.startAndHold();
    slowRelease(1500ms);
    deliver(Signal::terminate);
    harness.advance(500ms);
    deliver(Signal::terminate);
    harness.advance(5s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 2500ms, .status = 143}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigtermLine));
    EXPECT_EQ(harness.timesWritten("F0Md=0"), 2);  // at the start and at the end
}

TEST_P(SafetyHandlersTest, aSigintAfterASigtermChangesNothing) {
    (void)harness.startAndHold();
    slowRelease(1500ms);
    deliver(Signal::terminate);
    harness.advance(500ms);
    deliver(Signal::interrupt);
    harness.advance(5s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 2500ms, .status = 143}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigtermLine));
}

TEST_P(SafetyHandlersTest, aSigtermAfterASigintChangesNothing) {
    (void)harness.startAndHold();
    slowRelease(1500ms);
    deliver(Signal::interrupt);
    harness.advance(500ms);
    deliver(Signal::terminate);
    harness.advance(5s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 2500ms, .status = 130}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigintLine));
}

TEST_P(SafetyHandlersTest, aRestorationOf2Point9SecondsIsWaitedFor) {
    (void)harness.startAndHold();
    slowRelease(2900ms);
    deliver(Signal::terminate);
    harness.advance(10s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 3900ms, .status = 143}));
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
    EXPECT_FALSE(harness.mac.forceTest());
}

TEST_P(SafetyHandlersTest, aRestorationOf3SecondsEndsTheProcessThen) {
    (void)harness.startAndHold();
    slowRelease(3s);
    deliver(Signal::terminate);
    harness.advance(10s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 4s, .status = 143}));
}

TEST_P(SafetyHandlersTest, aRestorationOf3Point1SecondsIsCutOffWithoutAWord) {
    (void)harness.startAndHold();
    slowRelease(3100ms);
    deliver(Signal::terminate);
    harness.advance(10s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 4s, .status = 143}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, sigtermLine));
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::automatic, FanMode::forced));
}

TEST_P(SafetyHandlersTest, aStuckSMCDoesNotKeepTheProcessAlive) {
    (void)harness.startAndHold();
    harness.mac.smc().add({.operation = Fault::Operation::write, .latency = 1h});
    deliver(Signal::interrupt);
    harness.advance(2h);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 4s, .status = 130}));
}

TEST_P(SafetyHandlersTest, theLimitIsTheSameAtAnyOtherExit) {
    const auto client = harness.startAndHold();
    slowRelease(3100ms, 1100ms);
    int replies = 0;
    sendShutdown(client, replies);
    harness.advance(10s);
    EXPECT_EQ(replies, 1);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 4200ms, .status = 0}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, processExit));
}

TEST_P(SafetyHandlersTest, aFanThatRefusesToTheEndDoesNotKeepTheProcessAlive) {
    (void)harness.startAndHold();
    harness.mac.smc().add({.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    deliver(Signal::terminate);
    harness.advance(10s);
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 4s, .status = 143}));
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::forced, FanMode::automatic));
}

INSTANTIATE_TEST_SUITE_P(Seeds, SafetyHandlersTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

/// The handlers alone, on a process that writes down what it is asked for.
class SafetyHandlersAlone : public testing::Test {
protected:
    ~SafetyHandlersAlone() override { system.runtime.abandon(); }

    void hold() {
        (void)system.runtime.run(system.controller->restoreAllFansToAutomatic());
        EXPECT_EQ(system.runtime.run(system.controller->fullBlast()),
                  control::ControlResult::applied());
    }
    void restore() { system.runtime.run(handlers.restoreAutoOnExit("a reason")); }

    Journal journal;
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    RecordingProcess process{journal};
    SafetyHandlers handlers{system.runtime, process, system.standardError};
};

TEST_F(SafetyHandlersAlone, areInstalledForEveryExitThenForSigtermThenForSigint) {
    handlers.installSafetyHandlers();
    EXPECT_THAT(journal, ElementsAre("atExit", "handle SIGTERM", "handle SIGINT"));
}

TEST_F(SafetyHandlersAlone, doNothingBeforeTheyAreArmed) {
    hold();
    restore();
    EXPECT_THAT(system.standardError.lines, IsEmpty());
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::forced);
    handlers.arm(system.controller);
    restore();  // what did nothing was not the one time
    EXPECT_THAT(system.standardError.lines,
                ElementsAre("[com.brisquell.helper] a reason: restoring Auto...\n"));
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::automatic);
}

TEST_F(SafetyHandlersAlone, restoreOnceInTheLifeOfTheProcess) {
    handlers.arm(system.controller);
    restore();
    hold();
    restore();
    EXPECT_EQ(system.standardError.lines.size(), 1U);
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::forced);
}

/// As when a task ends the process while another thread handles a signal.
TEST_F(SafetyHandlersAlone, keepASecondExitWaitingUntilTheFirstHasGivenTheFansBack) {
    hold();
    handlers.arm(system.controller);
    system.mac.smc().add({.key = "F0Md", .value = 0, .latency = 500ms});
    const Duration start = system.elapsed();
    system.runtime.detach("first exit", handlers.restoreAutoOnExit("a signal"));
    system.runtime.advance(100ms);
    EXPECT_EQ(system.mac.fan(1).mode, FanMode::forced);
    restore();
    EXPECT_EQ(system.elapsed() - start, 500ms);
    EXPECT_EQ(system.mac.fan(1).mode, FanMode::automatic);
}

TEST_F(SafetyHandlersAlone, restoreTheControllerThatWasArmedLast) {
    simulation::SimulatedMac other(*simulation::machinePreset("left-forced"),
                                   [this] { return system.elapsed(); });
    simulation::SimulatedHardware hardware(system.runtime, other, system.standardError);
    (void)system.runtime.run(hardware.open());
    const auto later = std::make_shared<control::LocalFanController>(
        system.runtime, hardware.smc(), hardware.sensors(), [] { return 0U; });
    hold();
    handlers.arm(system.controller);
    handlers.arm(later);
    (void)system.runtime.run(later->restoreAllFansToAutomatic());
    other.setMode(0, FanMode::forced);
    restore();
    EXPECT_EQ(other.fan(0).mode, FanMode::automatic);
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::forced);
    system.runtime.abandon();
}

TEST_F(SafetyHandlersAlone, theHandlerOfEachSignalRestoresAndThenExits) {
    handlers.arm(system.controller);
    handlers.installSafetyHandlers();
    journal.clear();
    hold();
    system.runtime.run(process.signalHandlers[0]());
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::automatic);
    system.runtime.run(process.signalHandlers[1]());
    EXPECT_THAT(journal,
                ElementsAre("announce exit 143", "exit 143", "announce exit 130", "exit 130"));
    EXPECT_THAT(system.standardError.lines, ElementsAre(sigtermLine));
}

}  // namespace
}  // namespace airflow::daemon
