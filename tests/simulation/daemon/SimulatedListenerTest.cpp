#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "daemon/HelperListenerDelegate.h"
#include "simulation/daemon/SimulatedListener.h"
#include "simulation/daemon/SimulatedProcess.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::simulation {
namespace {

using daemon::FanHelperService;
using testing::ElementsAre;
using testing::IsEmpty;

class SimulatedListenerTest : public testing::TestWithParam<std::uint64_t> {
protected:
    ~SimulatedListenerTest() override { system.runtime.abandon(); }

    void listen() {
        listener.resume(delegate);
        system.runtime.settle();
    }
    SimulatedConnection::Message note(const std::string& what) {
        return [this, what](FanHelperService&) { happened.push_back(what); };
    }

    SimulatedSystem system{*machinePreset("laptop"), {.seed = GetParam()}};
    SimulatedRuntime& runtime = system.runtime;
    SimulatedProcess process{runtime};
    FanHelperService service{runtime, process, system.controller};
    daemon::HelperListenerDelegate delegate{service};
    SimulatedListener listener{runtime};
    std::vector<std::string> happened;
};

TEST_P(SimulatedListenerTest, listensFromItsResumptionOn) {
    EXPECT_FALSE(listener.isListening());
    listen();
    EXPECT_TRUE(listener.isListening());
}

TEST_P(SimulatedListenerTest, deliversMessagesInOrderToTheService) {
    listen();
    const auto connection = listener.connect();
    for (const char* text : {"1", "2", "3"}) connection->send(note(text));
    EXPECT_THAT(happened, IsEmpty());
    runtime.settle();
    connection->send(note("4"));
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("1", "2", "3", "4"));
    const FanHelperService* told = nullptr;
    connection->send([&told](FanHelperService& given) { told = &given; });
    runtime.settle();
    EXPECT_EQ(told, &service);
}

TEST_P(SimulatedListenerTest, whatIsSentBeforeItListensWaits) {
    const auto connection = listener.connect();
    connection->send(note("early"));
    runtime.settle();
    EXPECT_THAT(happened, IsEmpty());
    EXPECT_EQ(connection->codeSigningRequirement(), "");
    listen();
    EXPECT_THAT(happened, ElementsAre("early"));
    EXPECT_EQ(connection->codeSigningRequirement(), daemon::codeSigningRequirement);
}

TEST_P(SimulatedListenerTest, aConnectionThatEndedWhileItWaitedIsServedToItsEnd) {
    const auto connection = listener.connect();
    connection->send(note("early"));
    connection->end();
    connection->send(note("too late"));
    listen();
    EXPECT_THAT(happened, ElementsAre("early"));
}

TEST_P(SimulatedListenerTest, endsAfterItsMessagesAndOnce) {
    listen();
    const auto connection = listener.connect();
    runtime.settle();
    connection->setInvalidationHandler([this] { happened.emplace_back("invalid"); });
    connection->setInterruptionHandler([this] { happened.emplace_back("interrupted"); });
    connection->send(note("last words"));
    connection->end();
    EXPECT_FALSE(connection->isOpen());
    connection->end();
    connection->send(note("too late"));
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("last words", "invalid"));
}

TEST_P(SimulatedListenerTest, aMessageMaySendOnItsConnection) {
    listen();
    const auto connection = listener.connect();
    connection->send([this, connection](FanHelperService&) {
        happened.emplace_back("first");
        connection->send(note("second"));
    });
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("first", "second"));
}

TEST_P(SimulatedListenerTest, aMessageOfAnUntrustedPeerEndsItsConnection) {
    listen();
    const auto untrusted = listener.connect(false);
    runtime.settle();
    EXPECT_TRUE(untrusted->isOpen());
    untrusted->setInvalidationHandler([this] { happened.emplace_back("invalid"); });
    untrusted->send(note("first"));
    untrusted->send(note("second"));
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("invalid"));
    EXPECT_FALSE(untrusted->isOpen());
}

TEST_P(SimulatedListenerTest, withoutARequirementEveryPeerIsTrusted) {
    const auto connection = std::make_shared<SimulatedConnection>(runtime, false);
    connection->exportService(service);
    connection->send(note("hello"));
    connection->resume();
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("hello"));
}

TEST_P(SimulatedListenerTest, aConnectionThatNobodyHoldsGoesWhenAllIsDelivered) {
    listen();
    auto connection = listener.connect();
    connection->send(note("message"));
    const std::weak_ptr<SimulatedConnection> watched = connection;
    connection.reset();
    runtime.settle();
    EXPECT_THAT(happened, ElementsAre("message"));
    EXPECT_TRUE(watched.expired());
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimulatedListenerTest,
                         testing::Range(std::uint64_t{0}, std::uint64_t{21}));

}  // namespace
}  // namespace airflow::simulation
