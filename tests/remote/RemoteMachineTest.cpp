#include <gmock/gmock.h>

#include <cmath>
#include <string>
#include <utility>

#include "MachineHarness.h"
#include "remote/RemoteMachine.h"
#include "sensors/hid/HIDBridge.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/SMCConnection.h"
#include "smc/SMCRequests.h"

namespace airflow::remote {
namespace {

using namespace std::chrono_literals;
using sensors::HIDFunctions;

class RemoteMachineTest : public testing::Test {
protected:
    MachineHarness harness;
    simulation::SimulatedRuntime runtime;
};

TEST_F(RemoteMachineTest, theSMCIsReadAndWrittenOverTheWire) {
    auto machine = harness.remote();
    smc::SMCRequests requests(machine.smc());
    ASSERT_TRUE(requests.open());
    EXPECT_EQ(requests.tryReadValue("FNum")->numeric(), 2);
    EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0);
    EXPECT_EQ(requests.writeFloat("F0Tg", 3000), 0);
    EXPECT_EQ(harness.fan(0).mode, simulation::FanMode::forced);
    EXPECT_EQ(harness.fan(0).target, 3000);
    EXPECT_EQ(harness.fan(1).mode, simulation::FanMode::automatic);
    EXPECT_THAT(requests.discoverTempKeys(),
                testing::ElementsAre("TCHP", "TCMb", "TCMz", "TG0D", "TD01", "TB0T", "TW0P"));
}

TEST_F(RemoteMachineTest, refusalsOfTheSMCAndOfTheKernelComeBackAsTheyAre) {
    harness.add({.key = "F0Md", .result = 0x86});
    harness.add({.key = "F1Md", .kernelReturn = static_cast<std::int32_t>(0xE00002BC)});
    auto machine = harness.remote();
    smc::SMCRequests requests(machine.smc());
    ASSERT_TRUE(requests.open());
    EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0x86);
    EXPECT_EQ(requests.writeUInt8("F1Md", 1).error(),
              smc::SMCError::ioReturn("IOConnectCallStructMethod", 0xE00002BC));
    EXPECT_EQ(requests.readValue("ABCD").error(), smc::SMCError::keyNotFound("ABCD"));
}

TEST_F(RemoteMachineTest, aFailedCallLeavesTheReplyAlone) {
    auto machine = harness.remote();
    smc::SMCParamStruct reply = recordOf(7);
    EXPECT_EQ(machine.smc().call(0, 2, {}, reply), simulation::SimulatedSMC::badArgument);
    EXPECT_EQ(reply.key, 7U);
}

TEST_F(RemoteMachineTest, aClientThatCannotBeOpenedLeavesTheHandleAlone) {
    harness.locked([this] { harness.mac.smc().openResult = -5; });
    auto machine = harness.remote();
    std::uint32_t handle = 7;
    EXPECT_EQ(machine.smc().open(machine.smc().findService("AppleSMC"), 0, handle), -5);
    EXPECT_EQ(handle, 7U);
}

TEST_F(RemoteMachineTest, temperaturesAreSampledOverTheWire) {
    auto machine = harness.remote();
    const HIDFunctions functions(machine.hidFunctions());
    sensors::HIDBridge bridge(functions, machine.hidObjects(), runtime);
    EXPECT_TRUE(bridge.isAvailable());
    const auto discovery = bridge.discoverLabeledTemperatureServices();
    ASSERT_TRUE(discovery);
    ASSERT_EQ(discovery->services.size(), 10U);
    EXPECT_EQ(discovery->services[0].label, "PMU tdie1");
    EXPECT_EQ(discovery->services[9].label, "NAND CH0 temp");
    const auto readings = runtime.run(bridge.sampleTemperatures(discovery->services, 3));
    ASSERT_EQ(readings.size(), 10U);
    EXPECT_EQ(readings[0].samples.size(), 3U);
    EXPECT_NEAR(readings[0].celsius(), 44.5, 0.05);
    EXPECT_NEAR(readings[9].celsius(), 35, 0.05);
    EXPECT_EQ(harness.locked([this] { return harness.mac.hid().wrongUses(); }), 0);
}

TEST_F(RemoteMachineTest, everyObjectIsGivenBackByItsOwnerAndNoneTwice) {
    auto machine = harness.remote();
    {
        const HIDFunctions functions(machine.hidFunctions());
        sensors::HIDBridge bridge(functions, machine.hidObjects(), runtime);
        EXPECT_TRUE(bridge.discoverLabeledTemperatureServices());
        EXPECT_GT(harness.liveObjects(), 0U);
    }
    EXPECT_FALSE(machine.hidObjects().text(nullptr)) << "releases in front of it are done by now";
    EXPECT_EQ(harness.liveObjects(), 0U);
    EXPECT_EQ(harness.locked([this] { return harness.mac.hid().overReleases(); }), 0);
}

TEST_F(RemoteMachineTest, aDaemonThatDiesLeavesTheFansAndNothingElse) {
    {
        auto machine = harness.remote();
        smc::SMCRequests requests(machine.smc());
        ASSERT_TRUE(requests.open());
        EXPECT_EQ(requests.writeUInt8("F1Md", 1), 0);
        EXPECT_EQ(requests.writeFloat("F1Tg", 2500), 0);
        EXPECT_NE(machine.hidObjects().makeText("held"), nullptr);
    }
    EXPECT_TRUE(eventually([this] { return harness.holdsNothing(); }));
    EXPECT_EQ(harness.fan(1).mode, simulation::FanMode::forced);
    EXPECT_EQ(harness.fan(1).target, 2500);
}

TEST_F(RemoteMachineTest, theNextDaemonFindsTheFansAsTheyWereLeft) {
    {
        auto first = harness.remote();
        smc::SMCRequests requests(first.smc());
        ASSERT_TRUE(requests.open());
        EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0);
    }
    auto second = harness.remote();
    smc::SMCRequests requests(second.smc());
    ASSERT_TRUE(requests.open());
    EXPECT_EQ(requests.tryReadValue("F0Md")->numeric(), 1);
}

TEST_F(RemoteMachineTest, aMachineWithoutHIDFunctionsHasNone) {
    MachineHarness without("no-hid-symbols");
    auto machine = without.remote();
    EXPECT_FALSE(HIDFunctions(machine.hidFunctions()).isAvailable());
}

TEST_F(RemoteMachineTest, withoutAMachineThereIsNoDriver) {
    RemoteMachine machine("/nonexistent/machine.sock");
    smc::SMCConnection connection(runtime, machine.smc());
    EXPECT_EQ(runtime.run(connection.open()).error(), smc::SMCError::driverNotFound());
    EXPECT_FALSE(HIDFunctions(machine.hidFunctions()).isAvailable());
}

/// Everything that can be asked of a machine that is not there.
void expectNothing(RemoteMachine& machine, const HIDFunctions::Table& functions) {
    smc::SMCUserClient& client = machine.smc();
    std::uint32_t handle = 7;
    smc::SMCParamStruct reply = recordOf(7);
    EXPECT_EQ(client.findService("AppleSMC"), 0U);
    EXPECT_EQ(client.open(1, 0, handle), RemoteSMC::noDevice);
    EXPECT_EQ(handle, 7U);
    EXPECT_EQ(client.call(1, 2, {}, reply), RemoteSMC::noDevice);
    EXPECT_EQ(reply.key, 7U);
    client.release(1);
    client.close(1);

    sensors::HIDObjects& objects = machine.hidObjects();
    EXPECT_EQ(objects.makeDictionary({{"PrimaryUsage", 5}}), nullptr);
    EXPECT_EQ(objects.makeText("Product"), nullptr);
    EXPECT_TRUE(objects.elements(nullptr).empty());
    EXPECT_EQ(objects.text(nullptr), std::nullopt);
    objects.retain(nullptr);
    objects.release(nullptr);
    EXPECT_EQ(functions.clientCreate(nullptr), nullptr);
    functions.clientSetMatching(nullptr, nullptr);
    EXPECT_EQ(functions.clientCopyServices(nullptr), nullptr);
    EXPECT_EQ(functions.serviceCopyProperty(nullptr, nullptr), nullptr);
    EXPECT_EQ(functions.serviceCopyEvent(nullptr, 15, 0, 0), nullptr);
    EXPECT_TRUE(std::isnan(functions.eventGetFloatValue(nullptr, 0xF0000)));
    EXPECT_FALSE(HIDFunctions(machine.hidFunctions()).isAvailable());
}

TEST_F(RemoteMachineTest, whenTheMachineDiesEverythingFailsAndNothingElseHappens) {
    auto machine = harness.remote();
    const auto functions = machine.hidFunctions();
    EXPECT_NE(machine.smc().findService("AppleSMC"), 0U);
    harness.server.reset();
    expectNothing(machine, functions);
}

TEST_F(RemoteMachineTest, anAnswerThatIsNoneEndsTheLink) {
    for (const std::string& nonsense :
         {std::string("\0\0\0\0", 4), std::string("\x03\0\0\0abc", 7),
          std::string("\x05\0\0\0abcde", 9), std::string("\xFF\xFF\xFF\xFF", 4)}) {
        auto [theirs, ours] = socketPair();
        EXPECT_TRUE(platform::sendAll(theirs, nonsense + std::string("\x04\0\0\0good", 8)));
        RemoteSMC client(std::move(ours));
        EXPECT_EQ(client.findService("AppleSMC"), 0U) << nonsense;
        EXPECT_EQ(client.findService("AppleSMC"), 0U) << "what comes after nonsense is nonsense";
    }
}

TEST_F(RemoteMachineTest, aMachineThatDiesWithinAnAnswerHasGivenNone) {
    auto [theirs, ours] = socketPair();
    EXPECT_TRUE(platform::sendAll(theirs, std::string_view("\x04\0\0\0go", 6)));
    shutdown(theirs.get(), SHUT_WR);
    RemoteSMC client(std::move(ours));
    EXPECT_EQ(client.findService("AppleSMC"), 0U);
}

TEST_F(RemoteMachineTest, threadsMayAskTheTwoHalvesAtATime) {
    auto machine = harness.remote();
    smc::SMCRequests requests(machine.smc());
    ASSERT_TRUE(requests.open());
    std::thread hub([&machine] {
        for (int i = 0; i < 2000; ++i) {
            const auto text = machine.hidObjects().makeText("text");
            EXPECT_EQ(machine.hidObjects().text(text), "text");
            machine.hidObjects().release(text);
        }
    });
    for (int i = 0; i < 2000; ++i) EXPECT_EQ(requests.tryReadValue("FNum")->numeric(), 2);
    hub.join();
}

}  // namespace
}  // namespace airflow::remote
