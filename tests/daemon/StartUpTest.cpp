#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "daemon/Daemon.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StartUp : public DaemonSchedule {
protected:
    DaemonHarness left{GetParam(), "left-forced"};
};

TEST_P(StartUp, givesBackWhatAnEarlierLifeLeftForcedAndThenListens) {
    left.start();
    EXPECT_THAT(left.lines(), ElementsAre(listening));
    EXPECT_THAT(left.modes(), ElementsAre(FanMode::automatic, FanMode::automatic));
    EXPECT_FALSE(left.mac.forceTest());
    EXPECT_TRUE(left.daemon->listener.isListening());
    EXPECT_FALSE(left.end());
}

TEST_P(StartUp, withoutAnSMCOneLineIsWrittenAndNoFanIsTouched) {
    left.mac.smc().isPresent = false;
    left.start();
    EXPECT_THAT(left.journal, ElementsAre("log [com.brisquell.helper] failed to open AppleSMC: "
                                          "AppleSMC IOKit service not found\n"));
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 0s, .status = 1}));
    EXPECT_FALSE(left.daemon->listener.isListening());
    EXPECT_THAT(left.modes(), ElementsAre(FanMode::forced, FanMode::forced));
}

TEST_P(StartUp, anSMCThatCannotBeOpenedIsReportedWithItsError) {
    left.mac.smc().openResult = -536870207;
    left.start();
    EXPECT_THAT(left.journal, ElementsAre("log [com.brisquell.helper] failed to open AppleSMC: "
                                          "IOServiceOpen failed: -536870207\n"));
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 0s, .status = 1}));
}

TEST_P(StartUp, fansThatCannotBeCountedEndTheProcessAfterOneMoreRestoration) {
    left.mac.smc().add(
        {.key = "FNum", .operation = Fault::Operation::read, .result = std::uint8_t{0x84}});
    left.start();
    EXPECT_THAT(left.lines(), ElementsAre("[com.brisquell.helper] startup Auto recovery failed: "
                                          "could not read FNum during startup recovery\n",
                                          processExit));
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 0s, .status = 1}));
    EXPECT_FALSE(left.daemon->listener.isListening());
}

TEST_P(StartUp, aFanThatRefusesEndsTheProcessAfterOneMoreRestoration) {
    left.mac.smc().add({.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    left.start();
    EXPECT_THAT(left.lines(),
                ElementsAre("[com.brisquell.helper] startup Auto recovery failed: failed to "
                            "restore Auto: F0Md=0 rejected (SMC 0x86)\n",
                            processExit));
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 0s, .status = 1}));
    EXPECT_EQ(left.timesWritten("F0Md=0"), 2);
    EXPECT_THAT(left.modes(), ElementsAre(FanMode::forced, FanMode::automatic));
    EXPECT_FALSE(left.daemon->listener.isListening());
}

TEST_P(StartUp, theRestorationAtTheExitMayStillGiveBackWhatRecoveryCouldNot) {
    left.mac.smc().add({.until = 50ms, .key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    left.mac.smc().add({.key = "F1Md", .value = 0, .latency = 100ms});
    left.begin();
    left.advance(1s);
    EXPECT_EQ(left.end(), (ProcessEnd{.time = 200ms, .status = 1}));
    EXPECT_THAT(left.modes(), ElementsAre(FanMode::automatic, FanMode::automatic));
}

TEST_P(StartUp, handlersStandBeforeTheFirstFanIsTouched) {
    bool isFirst = true;
    left.mac.smc().observer = [this, &isFirst](const simulation::SMCAccess&) {
        if (std::exchange(isFirst, false)) left.daemon->process.deliver(Signal::terminate);
    };
    left.start();
    ASSERT_TRUE(left.end());
    EXPECT_EQ(left.end()->status, 143);
    EXPECT_FALSE(left.end()->bySignal);
    EXPECT_THAT(left.lines(), testing::Contains(sigtermLine));
}

TEST_P(StartUp, fansAreInAutoBeforeTheFirstMessageIsDelivered) {
    left.mac.smc().add({.operation = Fault::Operation::write, .latency = 100ms});
    std::vector<FanMode> seen;
    const auto client = left.daemon->listener.connect();
    client->send([this, &seen](FanHelperService&) { seen = left.modes(); });
    left.begin();
    left.advance(350ms);  // four writes
    EXPECT_THAT(seen, IsEmpty());
    EXPECT_FALSE(left.daemon->listener.isListening());
    EXPECT_THAT(left.lines(), IsEmpty());
    left.advance(50ms);
    EXPECT_THAT(seen, ElementsAre(FanMode::automatic, FanMode::automatic));
    EXPECT_THAT(left.lines(), ElementsAre(listening));
}

TEST_P(StartUp, aConnectionThatWasOpenedBeforeIsServedWhenTheDaemonListens) {
    const auto early = left.daemon->listener.connect();
    std::string version;
    early->send([&version](FanHelperService& service) {
        service.helperVersion([&version](std::string_view text) { version = text; });
    });
    left.start();
    EXPECT_EQ(version, "1.0.3+6");
    EXPECT_TRUE(early->isOpen());
}

TEST_P(StartUp, aProcessThatStartsAfterOneThatWasKilledRecoversAgain) {
    DaemonHarness harness(GetParam());
    (void)harness.startAndHold();
    harness.daemon->process.kill();
    EXPECT_EQ(harness.end(), (ProcessEnd{.time = 1s, .status = 137, .bySignal = true}));
    EXPECT_THAT(harness.lines(), ElementsAre(listening));
    harness.newProcess(GetParam());
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::forced, FanMode::forced));
    harness.start();
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::automatic, FanMode::automatic));
    EXPECT_THAT(harness.lines(), ElementsAre(listening, listening));
    EXPECT_EQ(harness.stateOf(harness.daemon->listener.connect()),
              R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

INSTANTIATE_TEST_SUITE_P(Seeds, StartUp, testing::Range(std::uint64_t{0}, std::uint64_t{21}));

TEST(StartUpSteps, ofAMachineWithoutFansAreNoDifferent) {
    DaemonHarness harness(0, "fanless");
    harness.start();
    EXPECT_THAT(harness.lines(), ElementsAre(listening));
}

TEST(StartUpSteps, recoveryAsksForNoUserID) {
    DaemonHarness harness(0, "left-forced", 501);
    harness.start();
    EXPECT_THAT(harness.lines(), ElementsAre(listening));
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::automatic, FanMode::automatic));
}

/// A daemon on recording seams, above the machine of a simulated system.
class RecordedStartUp : public testing::Test {
protected:
    class JournalSink final : public sensors::LogSink {
    public:
        explicit JournalSink(Journal& kept) : journal(kept) {}
        void write(std::string_view line) override { journal.push_back(std::string(line)); }

    private:
        Journal& journal;
    };

    RecordedStartUp() {
        mac.smc().observer = [this](const simulation::SMCAccess& access) {
            if (access.operation == Fault::Operation::read) journal.push_back("read " + access.key);
            if (access.operation == Fault::Operation::write)
                journal.push_back(fmt::format("write {}={}", access.key, access.value));
        };
    }
    ~RecordedStartUp() override { runtime.abandon(); }

    void start() {
        runtime.detach("start-up", daemon.startUp());
        runtime.settle();
    }

    Journal journal;
    simulation::SimulatedRuntime runtime;
    simulation::SimulatedMac mac{{.fans = {{.modeKey = "F0Md", .mode = 1}}},
                                 [this] { return runtime.now().time_since_epoch(); }};
    RecordingProcess process{journal};
    RecordingListener listener{journal};
    JournalSink standardError{journal};
    simulation::SimulatedHardware hardware{runtime, mac, standardError};
    Daemon daemon{{.runtime = runtime,
                   .hardware = hardware,
                   .process = process,
                   .listener = listener,
                   .standardError = standardError,
                   .effectiveUserID = [] { return 0U; }}};
};

TEST_F(RecordedStartUp, takesItsStepsInOrder) {
    start();
    EXPECT_THAT(journal,
                ElementsAre("atExit", "handle SIGTERM", "handle SIGINT", "read FNum", "read F0Md",
                            "write Ftst=1", "write F0Md=0", "write Ftst=0", "listen", listening));
}

TEST_F(RecordedStartUp, installsNoHandlersWhenTheSMCCannotBeOpened) {
    mac.smc().isPresent = false;
    start();
    EXPECT_THAT(journal, ElementsAre("[com.brisquell.helper] failed to open AppleSMC: "
                                     "AppleSMC IOKit service not found\n",
                                     "exit 1"));
}

TEST_F(RecordedStartUp, doesNotListenWhenRecoveryFails) {
    mac.smc().add({.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    start();
    EXPECT_THAT(journal,
                ElementsAre("atExit", "handle SIGTERM", "handle SIGINT", "read FNum", "read F0Md",
                            "write Ftst=1", "write F0Md=0",
                            "[com.brisquell.helper] startup Auto recovery failed: failed to "
                            "restore Auto: F0Md=0 rejected (SMC 0x86)\n",
                            "exit 1"));
}

TEST_F(RecordedStartUp, keepsNoStatesThatNobodyReads) {
    start();
    RecordingConnection connection;
    (void)listener.delegate->shouldAccept(connection);
    const auto controller = connection.exported->fanController();
    EXPECT_EQ(runtime.run(controller->automatic()), control::ControlResult::applied());
    EXPECT_EQ(runtime.run(controller->stateStream().next()), std::nullopt);
}

}  // namespace
}  // namespace airflow::daemon
