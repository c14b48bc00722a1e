#include "DaemonHarness.h"
#include "RecordingPlatform.h"
#include "daemon/HelperListenerDelegate.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::daemon {
namespace {

using testing::Each;
using testing::ElementsAre;

class HelperListenerDelegateTest : public testing::Test {
protected:
    ~HelperListenerDelegateTest() override { system.runtime.abandon(); }

    void hold() {
        (void)system.runtime.run(system.controller->restoreAllFansToAutomatic());
        EXPECT_EQ(system.runtime.run(system.controller->fullBlast()),
                  control::ControlResult::applied());
    }

    Journal processJournal;
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    RecordingProcess process{processJournal};
    FanHelperService service{system.runtime, process, system.controller};
    HelperListenerDelegate delegate{service};
};

TEST_F(HelperListenerDelegateTest, configuresAConnectionInOrderAndAcceptsIt) {
    RecordingConnection connection;
    EXPECT_TRUE(delegate.shouldAccept(connection));
    EXPECT_THAT(connection.journal,
                ElementsAre("export",
                            "require anchor apple generic and identifier \"com.brisquell.app\" and "
                            "certificate leaf[subject.OU] = \"K3QZ7T1VXB\"",
                            "invalidation handler", "interruption handler", "resume"));
}

TEST_F(HelperListenerDelegateTest, exportsTheOneServiceOnEveryConnection) {
    RecordingConnection first;
    RecordingConnection second;
    EXPECT_TRUE(delegate.shouldAccept(first));
    EXPECT_TRUE(delegate.shouldAccept(second));
    EXPECT_EQ(first.exported, &service);
    EXPECT_EQ(second.exported, &service);
}

TEST_F(HelperListenerDelegateTest, invalidationGivesAllFansBackLater) {
    hold();
    RecordingConnection connection;
    (void)delegate.shouldAccept(connection);
    connection.invalidated();
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::forced);  // it only starts a task
    system.runtime.settle();
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::automatic);
    EXPECT_EQ(system.mac.fan(1).mode, FanMode::automatic);
}

TEST_F(HelperListenerDelegateTest, interruptionGivesAllFansBackLater) {
    hold();
    RecordingConnection connection;
    (void)delegate.shouldAccept(connection);
    connection.interrupted();
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::forced);
    system.runtime.settle();
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::automatic);
    EXPECT_EQ(system.mac.fan(1).mode, FanMode::automatic);
}

TEST_F(HelperListenerDelegateTest, theHandlersNeedNoConnectionAnyMore) {
    hold();
    auto connection = std::make_unique<RecordingConnection>();
    (void)delegate.shouldAccept(*connection);
    const auto interrupted = connection->interrupted;
    const auto invalidated = connection->invalidated;
    connection.reset();
    interrupted();
    invalidated();
    system.runtime.settle();
    EXPECT_EQ(system.mac.fan(0).mode, FanMode::automatic);
}

/// Connections of clients to a whole daemon.
class Connections : public DaemonSchedule {
protected:
    void SetUp() override { client = harness.startAndHold(); }

    DaemonHarness harness{GetParam()};
    DaemonHarness::Connection client;
};

TEST_P(Connections, areOpenedWithTheRequirement) {
    EXPECT_EQ(client->codeSigningRequirement(),
              "anchor apple generic and identifier \"com.brisquell.app\" and certificate "
              "leaf[subject.OU] = \"K3QZ7T1VXB\"");
}

TEST_P(Connections, aClientThatQuitsLeavesEveryFanInAuto) {
    client->end();
    harness.daemon->runtime.settle();
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
    EXPECT_FALSE(harness.mac.forceTest());
    EXPECT_FALSE(harness.end());
    EXPECT_EQ(harness.stateOf(harness.daemon->listener.connect()),
              R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST_P(Connections, theEndOfOneClientReleasesWhatTheOtherHolds) {
    const auto other = harness.daemon->listener.connect();
    EXPECT_THAT(harness.stateOf(other), testing::HasSubstr(R"("isHolding":true)"));
    EXPECT_THAT(harness.modes(), Each(FanMode::forced));
    other->end();
    harness.daemon->runtime.settle();
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));
    EXPECT_EQ(harness.stateOf(client), R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST_P(Connections, aFanThatRefusesAtTheEndOfOneIsTriedAgain) {
    harness.mac.smc().add({.key = "F0Md", .value = 0, .result = std::uint8_t{0x86}});
    client->end();
    harness.advance(7s);  // tried at once, and every two seconds
    EXPECT_EQ(harness.timesWritten("F0Md=0"), 5);
    EXPECT_THAT(harness.modes(), ElementsAre(FanMode::forced, FanMode::automatic));
}

TEST_P(Connections, anUntrustedPeerIsAcceptedButNoneOfItsMessagesIsCarriedOut) {
    const auto untrusted = harness.daemon->listener.connect(false);
    harness.daemon->runtime.settle();
    EXPECT_TRUE(untrusted->isOpen());
    EXPECT_THAT(harness.modes(), Each(FanMode::forced));
    bool wasCarriedOut = false;
    untrusted->send([&wasCarriedOut](FanHelperService&) { wasCarriedOut = true; });
    harness.advance(1s);
    EXPECT_FALSE(wasCarriedOut);
    EXPECT_FALSE(untrusted->isOpen());
    EXPECT_THAT(harness.modes(), Each(FanMode::automatic));  // its connection has ended
}

TEST_P(Connections, theEndDuringAClaimLeavesNoFanForced) {
    for (const Duration later : {0ms, 100ms, 290ms, 310ms}) {
        DaemonHarness unlock(GetParam(), "unlock");
        unlock.start();
        const auto claiming = unlock.daemon->listener.connect();
        int replies = 0;
        claiming->send([&replies](FanHelperService& service) {
            service.fullBlast([&replies](std::int64_t) { ++replies; });
        });
        unlock.advance(later);
        claiming->end();
        unlock.advance(20s);
        EXPECT_EQ(replies, 1);
        EXPECT_THAT(unlock.modes(), Each(FanMode::automatic)) << later.count();
    }
}

TEST_P(Connections, messagesBeforeTheEndAreCarriedOutBeforeTheFansGoBack) {
    std::vector<std::string> order;
    client->send([&order](FanHelperService& service) {
        order.emplace_back("message");
        service.heartbeat();
    });
    client->end();
    harness.mac.modeObserver = [&order](std::size_t, FanMode) { order.emplace_back("mode"); };
    harness.daemon->runtime.settle();
    EXPECT_THAT(order, ElementsAre("message", "mode", "mode"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, Connections, testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::daemon
