#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <optional>

#include "sensors/SMCConnectionReading.h"
#include "sensors/SensorReader.h"
#include "sensors/hid/HIDBridge.h"
#include "simulation/daemon/SimulatedSystem.h"
#include "simulation/machine/SimulatedHID.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/SMCConnection.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using sensors::HIDBridge;
using sensors::HIDFunctions;
using sensors::HIDObject;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::infinity;

class SimulatedHIDTest : public testing::Test {
protected:
    explicit SimulatedHIDTest(double jitter = 0)
        : hid(Temperatures{{"PMU tdie1", 44}, {"gas gauge battery", 31}}, jitter, 7) {}
    ~SimulatedHIDTest() override { runtime.abandon(); }

    /// The samples of every service that was found, in their order.
    std::vector<std::vector<double>> sample(int rounds = 1) {
        std::vector<std::vector<double>> samples;
        const auto readings = runtime.run(bridge.sampleTemperatures(discovery->services, rounds));
        for (const auto& reading : readings) samples.push_back(reading.samples);
        return samples;
    }
    void discover() { discovery = bridge.discoverLabeledTemperatureServices(); }

    SimulatedRuntime runtime;
    SimulatedHID hid;
    HIDFunctions functions{hid.functions()};
    HIDBridge bridge{functions, hid, runtime};
    std::optional<HIDBridge::Discovery> discovery;
};

TEST_F(SimulatedHIDTest, listsItsServicesInOrder) {
    discover();
    ASSERT_EQ(discovery->services.size(), 2u);
    EXPECT_EQ(discovery->services[0].label, "PMU tdie1");
    EXPECT_EQ(discovery->services[1].label, "gas gauge battery");
    EXPECT_THAT(sample(), ElementsAre(ElementsAre(44), ElementsAre(31)));
}

TEST_F(SimulatedHIDTest, withoutAHubThereAreNoServices) {
    hid.setTemperatures(std::nullopt);
    discover();
    EXPECT_FALSE(discovery);
    EXPECT_EQ(hid.clientsCreated(), 1);
}

TEST_F(SimulatedHIDTest, aHubMayBeEmpty) {
    hid.setTemperatures(Temperatures{});
    discover();
    EXPECT_THAT(discovery->services, IsEmpty());
}

TEST_F(SimulatedHIDTest, theFunctionsMayBeMissing) {
    const HIDFunctions missing(hid.functions(false));
    EXPECT_TRUE(functions.isAvailable());
    EXPECT_FALSE(missing.isAvailable());
}

TEST_F(SimulatedHIDTest, valuesChangeOverTime) {
    discover();
    hid.setTemperature("PMU tdie1", 61.5);
    EXPECT_THAT(sample(), ElementsAre(ElementsAre(61.5), ElementsAre(31)));
}

TEST_F(SimulatedHIDTest, isBroughtUpToDateBeforeEachSample) {
    double celsius = 50;
    hid.beforeSample = [&] { hid.setTemperature("PMU tdie1", celsius += 0.5); };
    discover();
    EXPECT_THAT(sample(2), ElementsAre(ElementsAre(50.5, 51.5), ElementsAre(31, 31)));
}

TEST_F(SimulatedHIDTest, aValueThatVanishesGivesNoSample) {
    discover();
    hid.setTemperatures(Temperatures{{"gas gauge battery", 32}});
    EXPECT_THAT(sample(), ElementsAre(IsEmpty(), ElementsAre(32)));
    hid.setTemperatures(std::nullopt);
    EXPECT_THAT(sample(), ElementsAre(IsEmpty(), IsEmpty()));
    hid.setTemperature("PMU tdie1", 40);
    EXPECT_THAT(sample(), ElementsAre(ElementsAre(40), IsEmpty()));
}

TEST_F(SimulatedHIDTest, aValueNeedNotBeANumber) {
    discover();
    hid.setTemperature("PMU tdie1", std::nan(""));
    hid.setTemperature("gas gauge battery", infinity);
    const auto samples = sample();
    EXPECT_TRUE(std::isnan(samples[0][0]));
    EXPECT_EQ(samples[1][0], infinity);
}

TEST_F(SimulatedHIDTest, servicesOfOneLabelHaveTheirOwnValues) {
    hid.setTemperatures(Temperatures{{"PMU tdie1", 44}, {"PMU tdie1", 52}});
    discover();
    EXPECT_THAT(sample(), ElementsAre(ElementsAre(44), ElementsAre(52)));
}

TEST_F(SimulatedHIDTest, onlyWhoAsksForTemperaturesIsGivenThem) {
    const HIDObject client = functions.clientCreate(nullptr);
    const auto servicesOf = [&] { return hid.elements(functions.clientCopyServices(client)); };
    const auto servicesFor = [&](const std::vector<SimulatedHID::Entry>& entries) {
        functions.clientSetMatching(client, hid.makeDictionary(entries));
        return servicesOf();
    };
    EXPECT_THAT(servicesOf(), IsEmpty());
    EXPECT_THAT(servicesFor({{"PrimaryUsagePage", 1}, {"PrimaryUsage", 6}}), IsEmpty());
    EXPECT_THAT(servicesFor({{"PrimaryUsagePage", 0xFF00}, {"PrimaryUsage", 6}}), IsEmpty());
    EXPECT_THAT(servicesFor({{"PrimaryUsagePage", 1}, {"PrimaryUsage", 5}}), IsEmpty());
    EXPECT_THAT(servicesFor({{"PrimaryUsagePage", 0xFF00}}), IsEmpty());
    EXPECT_THAT(servicesFor({{"PrimaryUsage", 5}}), IsEmpty());
    EXPECT_THAT(servicesFor({}), IsEmpty());
    EXPECT_EQ(servicesFor({{"PrimaryUsagePage", 0xFF00}, {"PrimaryUsage", 5}}).size(), 2u);
    EXPECT_EQ(servicesFor({{"PrimaryUsage", 5}, {"PrimaryUsagePage", 0xFF00}}).size(), 2u);
}

TEST_F(SimulatedHIDTest, otherPropertiesEventsAndFieldsHoldNothing) {
    discover();
    const HIDObject service = discovery->services[0].handle.get();
    EXPECT_EQ(functions.serviceCopyProperty(service, hid.makeText("Manufacturer")), nullptr);
    EXPECT_EQ(functions.serviceCopyEvent(service, 14, 0, 0), nullptr);
    const HIDObject event = functions.serviceCopyEvent(service, 15, 0, 0);
    EXPECT_EQ(functions.eventGetFloatValue(event, 0xF0000), 44);
    EXPECT_EQ(functions.eventGetFloatValue(event, 0xF0001), 0);
    EXPECT_EQ(hid.text(event), std::nullopt);
    EXPECT_EQ(hid.wrongUses(), 0);
}

TEST_F(SimulatedHIDTest, objectsAreCountedUntilTheirLastReferenceIsGivenBack) {
    const HIDObject text = hid.makeText("Product");
    hid.retain(text);
    hid.release(text);
    EXPECT_EQ(hid.liveObjects(), 1u);
    EXPECT_EQ(hid.text(text), "Product");
    hid.release(text);
    EXPECT_EQ(hid.liveObjects(), 0u);
    EXPECT_EQ(hid.overReleases(), 0);
    EXPECT_EQ(hid.wrongUses(), 0);
}

TEST_F(SimulatedHIDTest, aReleaseTooManyIsCountedAlsoWhenAnotherObjectTookThePlace) {
    const HIDObject first = hid.makeText("first");
    hid.release(first);
    const HIDObject second = hid.makeText("second");
    hid.release(first);
    EXPECT_EQ(hid.overReleases(), 1);
    EXPECT_EQ(hid.text(second), "second");
    hid.release(nullptr);
    EXPECT_EQ(hid.overReleases(), 2);
    EXPECT_EQ(hid.liveObjects(), 1u);
}

TEST_F(SimulatedHIDTest, aUseAfterTheLastReleaseIsCountedAndAnswersNothing) {
    const HIDObject text = hid.makeText("gone");
    hid.release(text);
    EXPECT_EQ(hid.text(text), std::nullopt);
    hid.retain(text);
    EXPECT_THAT(hid.elements(text), IsEmpty());
    EXPECT_EQ(functions.clientCopyServices(text), nullptr);
    EXPECT_EQ(functions.serviceCopyEvent(text, 15, 0, 0), nullptr);
    EXPECT_EQ(functions.eventGetFloatValue(text, 0xF0000), 0);
    EXPECT_EQ(hid.wrongUses(), 6);
    EXPECT_EQ(hid.overReleases(), 0);
}

TEST_F(SimulatedHIDTest, anArrayGivesItsElementsBackWithItself) {
    discover();
    EXPECT_EQ(hid.liveObjects(), 5u);  // client, dictionary, "Product" and two services
    discovery.reset();
    EXPECT_EQ(hid.liveObjects(), 2u);
}

TEST_F(SimulatedHIDTest, servicesAnswerOnlyWhileTheirClientLives) {
    discover();
    discovery->client = {};
    EXPECT_THAT(sample(), ElementsAre(IsEmpty(), IsEmpty()));
    EXPECT_EQ(hid.wrongUses(), 2);
}

class SimulatedHIDJitterTest : public SimulatedHIDTest {
protected:
    SimulatedHIDJitterTest() : SimulatedHIDTest(0.05) {}
};

TEST_F(SimulatedHIDJitterTest, twoSamplesDifferButNeverByMoreThanTheJitter) {
    discover();
    const auto samples = sample(1000)[0];
    ASSERT_EQ(samples.size(), 1000u);
    double least = 44;
    double most = 44;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        EXPECT_NE(samples[i], samples[i - 1]);
        least = std::min(least, samples[i]);
        most = std::max(most, samples[i]);
    }
    EXPECT_GE(least, 43.95);
    EXPECT_LT(least, 43.96);
    EXPECT_LE(most, 44.05);
    EXPECT_GT(most, 44.04);
}

TEST(SimulatedHIDSeed, decidesTheJitter) {
    const auto sample = [](std::uint64_t seed) {
        SimulatedHID hid(Temperatures{{"CPU", 50}}, 0.05, seed);
        SimulatedRuntime runtime;
        const HIDFunctions functions(hid.functions());
        HIDBridge bridge(functions, hid, runtime);
        const auto discovery = bridge.discoverLabeledTemperatureServices();
        return runtime.run(bridge.sampleTemperatures(discovery->services, 3))[0].samples;
    };
    EXPECT_EQ(sample(1), sample(1));
    EXPECT_NE(sample(1), sample(2));
}

class HIDLeaks : public testing::TestWithParam<MachineDescription> {};

TEST_P(HIDLeaks, aSensorReaderGivesEverythingBack) {
    SimulatedRuntime runtime;
    SimulatedMac mac(GetParam(), [&runtime] { return runtime.now().time_since_epoch(); });
    smc::SMCConnection connection(runtime, mac.smc());
    sensors::SMCConnectionReading smc(connection);
    RecordedLines log;
    const HIDFunctions functions(mac.hidFunctions());
    std::optional<HIDBridge> bridge(std::in_place, functions, mac.hid(), runtime);
    std::optional<sensors::SensorReader> reader(std::in_place, runtime, smc, *bridge, log);
    ASSERT_TRUE(runtime.run(connection.open()));

    (void)runtime.run(reader->snapshot());
    const std::size_t afterOne = mac.hid().liveObjects();
    for (int i = 0; i < 10; ++i) (void)runtime.run(reader->snapshot());
    EXPECT_EQ(mac.hid().liveObjects(), afterOne);

    reader.reset();
    bridge.reset();
    EXPECT_EQ(mac.hid().liveObjects(), 0u);
    EXPECT_EQ(mac.hid().overReleases(), 0);
    EXPECT_EQ(mac.hid().wrongUses(), 0);
    EXPECT_EQ(mac.smc().openServices(), 0);
    EXPECT_EQ(mac.smc().openConnections(), 1);
}

TEST(HIDLeaks, aSensorReaderKeepsItsServicesAndNothingElse) {
    SimulatedSystem system(*machinePreset("laptop"));
    for (int i = 0; i < 3; ++i) (void)system.runtime.run(system.sensors.snapshot());
    // The client, its matching dictionary, "Product" and ten services.
    EXPECT_EQ(system.mac.hid().liveObjects(), 13u);
    EXPECT_EQ(system.mac.hid().clientsCreated(), 1);
}

std::string presetName(const testing::TestParamInfo<MachineDescription>& info) {
    std::string name = info.param.name;
    std::ranges::replace(name, '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(EveryPreset, HIDLeaks, testing::ValuesIn(machinePresets()), presetName);

}  // namespace
}  // namespace airflow::simulation
