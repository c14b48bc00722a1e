#include <gmock/gmock.h>

#include "sensors/hid/HIDBridge.h"
#include "sensors/hidlibrary/HIDSystem.h"

namespace airflow::sensors {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using tests::HIDSystem;
using Machine = tests::HIDLibrary::Machine;

concurrency::Instant after(concurrency::Duration duration) {
    return concurrency::Instant(duration);
}

std::vector<std::string> labels(const HIDBridge::Discovery& discovery) {
    std::vector<std::string> result;
    for (const auto& service : discovery.services) result.push_back(service.label);
    return result;
}

TEST(HIDBridge, discoveryKeepsLabelledServicesInTheSystemsOrder) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie2", {}}, {"battery", {}}, {"tdie1", {}}}});

    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    ASSERT_TRUE(discovery);
    EXPECT_TRUE(discovery->client);
    EXPECT_THAT(labels(*discovery), ElementsAre("tdie2", "battery", "tdie1"));
}

TEST(HIDBridge, servicesWithoutAUsableLabelAreDropped) {
    SimulatedRuntime runtime;
    HIDSystem system(
        runtime,
        {.services = {
             {std::monostate{}, {}}, {std::int64_t{7}, {}}, {"", {}}, {" ", {}}, {"gpu", {}}}});

    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    ASSERT_TRUE(discovery);
    EXPECT_THAT(labels(*discovery), ElementsAre(" ", "gpu"));
}

TEST(HIDBridge, discoveryAsksForTemperatureServicesAndTheirProductNames) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {}}, {"tdie2", {}}}});

    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    ASSERT_TRUE(discovery);
    EXPECT_THAT(system.library.record().matching,
                UnorderedElementsAre(Pair("PrimaryUsagePage", 65280), Pair("PrimaryUsage", 5)));
    EXPECT_THAT(system.library.record().calls,
                ElementsAre("create client", "set matching", "copy services",
                            "copy property Product", "copy property Product"));
}

TEST(HIDBridge, aDiscoveryHoldsItsClientAndItsServicesAndNothingElse) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {}}, {"", {}}, {"tdie2", {}}}});
    {
        const auto discovery = system.bridge->discoverLabeledTemperatureServices();
        EXPECT_EQ(system.library.liveObjects(), 5);  // these, the matching and the property's name
    }
    EXPECT_EQ(system.library.liveObjects(), 2);
}

TEST(HIDBridge, whatDiscoveryAsksWithIsMadeOnce) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {}}}});

    EXPECT_TRUE(system.bridge->discoverLabeledTemperatureServices());
    EXPECT_TRUE(system.bridge->discoverLabeledTemperatureServices());

    EXPECT_EQ(system.library.record().makes, 2);
}

TEST(HIDBridge, aMachineWithoutServicesIsDiscoveredEmpty) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {});

    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    ASSERT_TRUE(discovery);
    EXPECT_THAT(discovery->services, IsEmpty());
}

TEST(HIDBridge, withoutAClientThereIsNoDiscovery) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {}}}, .givesClient = false});

    EXPECT_FALSE(system.bridge->discoverLabeledTemperatureServices());

    EXPECT_THAT(system.library.record().calls, ElementsAre("create client"));
    EXPECT_EQ(system.library.liveObjects(), 0);
}

TEST(HIDBridge, withoutAListOfServicesThereIsNoDiscovery) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {}}}, .givesServices = false});

    EXPECT_FALSE(system.bridge->discoverLabeledTemperatureServices());

    EXPECT_THAT(system.library.record().calls,
                ElementsAre("create client", "set matching", "copy services"));
}

TEST(HIDBridge, eachRoundTakesEveryServiceInOrder) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"a", {40, 41, 42}}, {"b", {50, 51, 52}}}});
    const auto discovery = system.bridge->discoverLabeledTemperatureServices();
    const std::size_t before = system.library.record().calls.size();

    const auto readings = runtime.run(system.bridge->sampleTemperatures(discovery->services, 2));

    EXPECT_THAT(readings, ElementsAre(RawReading{.label = "a", .samples = {40, 41}},
                                      RawReading{.label = "b", .samples = {50, 51}}));
    const auto& calls = system.library.record().calls;
    EXPECT_THAT(std::vector(calls.begin() + static_cast<std::ptrdiff_t>(before), calls.end()),
                ElementsAre("copy event 15 0 0 of a", "get field 983040",  //
                            "copy event 15 0 0 of b", "get field 983040",  //
                            "copy event 15 0 0 of a", "get field 983040",  //
                            "copy event 15 0 0 of b", "get field 983040"));
}

TEST(HIDBridge, aRoundWithoutAnEventGivesNoSample) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"a", {40, {}, 42}}, {"silent", {}}}});
    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    const auto readings = runtime.run(system.bridge->sampleTemperatures(discovery->services, 3));

    EXPECT_THAT(readings, ElementsAre(RawReading{.label = "a", .samples = {40, 42}},
                                      RawReading{.label = "silent", .samples = {}}));
}

TEST(HIDBridge, samplingWaitsBetweenRoundsOnly) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"a", {40}}}});
    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    runtime.run(system.bridge->sampleTemperatures(discovery->services, 1));
    EXPECT_EQ(runtime.now(), after(0ms));
    runtime.run(system.bridge->sampleTemperatures(discovery->services, 2));
    EXPECT_EQ(runtime.now(), after(40ms));
    runtime.run(system.bridge->sampleTemperatures(discovery->services, 4, 7));
    EXPECT_EQ(runtime.now(), after(40'021us));
}

TEST(HIDBridge, noRoundsGiveReadingsWithoutSamples) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"a", {40}}}});
    const auto discovery = system.bridge->discoverLabeledTemperatureServices();

    const auto readings = runtime.run(system.bridge->sampleTemperatures(discovery->services, 0));

    EXPECT_THAT(readings, ElementsAre(RawReading{.label = "a", .samples = {}}));
}

TEST(HIDBridge, samplingLeavesNothingBehind) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"a", {40, {}}}}});
    const auto discovery = system.bridge->discoverLabeledTemperatureServices();
    const int before = system.library.liveObjects();

    runtime.run(system.bridge->sampleTemperatures(discovery->services, 10));

    EXPECT_EQ(system.library.liveObjects(), before);
}

class HIDBridgeWithoutOne : public testing::TestWithParam<const char*> {};

TEST_P(HIDBridgeWithoutOne, nothingIsReadAndNothingIsTouched) {
    SimulatedRuntime runtime;
    HIDSystem system(runtime, {.services = {{"tdie1", {40, 41, 42}}}}, GetParam());

    EXPECT_FALSE(system.bridge->isAvailable());
    EXPECT_FALSE(system.bridge->discoverLabeledTemperatureServices());
    std::vector<HIDBridge::Service> services;
    services.push_back({.label = "tdie1", .handle = {}});
    EXPECT_THAT(runtime.run(system.bridge->sampleTemperatures(services, 3)), IsEmpty());

    EXPECT_THAT(system.library.record().calls, IsEmpty());
    EXPECT_EQ(system.library.record().makes, 0);
    EXPECT_EQ(runtime.now(), after(0ms));
}

INSTANTIATE_TEST_SUITE_P(EachFunction, HIDBridgeWithoutOne,
                         testing::Values("IOHIDEventSystemClientCreate",
                                         "IOHIDEventSystemClientSetMatching",
                                         "IOHIDEventSystemClientCopyServices",
                                         "IOHIDServiceClientCopyProperty",
                                         "IOHIDServiceClientCopyEvent", "IOHIDEventGetFloatValue"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace airflow::sensors
