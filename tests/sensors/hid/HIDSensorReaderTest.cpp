#include <gmock/gmock.h>

#include <algorithm>

#include "sensors/NamedSensors.h"
#include "sensors/hid/HIDSensorReader.h"
#include "sensors/hidlibrary/HIDSystem.h"

namespace airflow::sensors {
namespace {

using namespace std::chrono_literals;
using concurrency::Runtime;
using concurrency::Task;
using simulation::SimulatedRuntime;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::HIDSystem;

std::ptrdiff_t count(const HIDSystem& system, const std::string& call) {
    return std::ranges::count(system.library.record().calls, call);
}

Task<void> read(std::vector<TempSensor>& result, HIDSensorReader& reader) {
    result = co_await reader.readTemperatures();
}

Task<void> tick(int& ticks, Runtime& runtime) {
    for (;;) {
        co_await runtime.sleepFor(10ms);
        ++ticks;
    }
}

class HIDSensorReaderTest : public testing::TestWithParam<std::uint64_t> {
protected:
    SimulatedRuntime runtime{GetParam()};
};

TEST_P(HIDSensorReaderTest, theSamplesAreCurated) {
    HIDSystem system(runtime, {.services = {{"PMU tdie1", {48.0, 48.5, 49.0}},
                                            {"PMU tcal", {51.0, 52.0, 53.0}},
                                            {"gas gauge battery", {30.0}},
                                            {"PMU tdie2", {55.0, 55.5, 56.0}}}});
    HIDSensorReader reader(runtime, *system.bridge);

    EXPECT_TRUE(reader.isAPIAvailable());
    EXPECT_THAT(
        runtime.run(reader.readTemperatures()),
        ElementsAre(hidSensor("gas gauge battery", "Battery", 30.0, SensorCategory::battery),
                    hidSensor("SoC", "CPU", 55.5, SensorCategory::cpu)));
}

TEST_P(HIDSensorReaderTest, aReadTakesThreeRoundsFortyMillisecondsApart) {
    HIDSystem system(runtime, {.services = {{"gpu", {40, 41, 42}}}});
    HIDSensorReader reader(runtime, *system.bridge);
    std::vector<TempSensor> result;
    runtime.detach("caller", read(result, reader));

    runtime.settle();
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 1);
    runtime.advance(39'999us);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 1);
    runtime.advance(1us);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 2);
    runtime.advance(39'999us);
    EXPECT_THAT(result, IsEmpty());
    runtime.advance(1us);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 3);
    EXPECT_THAT(result, ElementsAre(hidSensor("gpu", "GPU (gpu)", 41, SensorCategory::gpu)));
}

TEST_P(HIDSensorReaderTest, aDiscoveryIsMadeOnceAndLaterReadsOnlySample) {
    HIDSystem system(runtime, {.services = {{"gpu", {40, 41, 42}}}});
    HIDSensorReader reader(runtime, *system.bridge);

    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(runtime.run(reader.readTemperatures()),
                    ElementsAre(hidSensor("gpu", "GPU (gpu)", 41, SensorCategory::gpu)));
    }

    EXPECT_EQ(count(system, "create client"), 1);
    EXPECT_EQ(count(system, "copy services"), 1);
    EXPECT_EQ(count(system, "copy property Product"), 1);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 9);
}

TEST_P(HIDSensorReaderTest, nothingIsCreatedBeforeTheFirstRead) {
    HIDSystem system(runtime, {.services = {{"gpu", {40, 41, 42}}}});
    const HIDSensorReader reader(runtime, *system.bridge);

    EXPECT_THAT(system.library.record().calls, IsEmpty());
    EXPECT_THAT(system.library.record().lookUps, IsEmpty());
}

TEST_P(HIDSensorReaderTest, aFailedDiscoveryIsTriedAgain) {
    HIDSystem system(runtime, {.services = {{"gpu", {40}}}, .givesServices = false});
    HIDSensorReader reader(runtime, *system.bridge);

    EXPECT_THAT(runtime.run(reader.readTemperatures()), IsEmpty());
    EXPECT_THAT(runtime.run(reader.readTemperatures()), IsEmpty());

    EXPECT_EQ(count(system, "copy services"), 2);
    EXPECT_EQ(runtime.now(), concurrency::Instant(0ms));
}

TEST_P(HIDSensorReaderTest, aDiscoveryWithoutServicesIsNotRepeated) {
    HIDSystem system(runtime, {});
    HIDSensorReader reader(runtime, *system.bridge);

    EXPECT_THAT(runtime.run(reader.readTemperatures()), IsEmpty());
    EXPECT_THAT(runtime.run(reader.readTemperatures()), IsEmpty());

    EXPECT_EQ(count(system, "copy services"), 1);
}

TEST_P(HIDSensorReaderTest, withoutTheFunctionThatReadsTheFieldTheHIDSystemIsNotTouched) {
    HIDSystem system(runtime, {.services = {{"gpu", {40}}}}, "IOHIDEventGetFloatValue");
    HIDSensorReader reader(runtime, *system.bridge);

    EXPECT_FALSE(reader.isAPIAvailable());
    EXPECT_THAT(runtime.run(reader.readTemperatures()), IsEmpty());

    EXPECT_THAT(system.library.record().calls, IsEmpty());
}

TEST_P(HIDSensorReaderTest, itsSleepBlocksItselfButNotTheOthers) {
    HIDSystem system(runtime, {.services = {{"gpu", {40, 41, 42}}}});
    HIDSensorReader reader(runtime, *system.bridge);
    std::vector<TempSensor> first;
    std::vector<TempSensor> second;
    int ticks = 0;
    runtime.detach("ticker", tick(ticks, runtime));
    runtime.detach("first", read(first, reader));
    runtime.detach("second", read(second, reader));

    runtime.advance(79ms);
    EXPECT_EQ(ticks, 7);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 2);  // of one read only

    runtime.advance(80ms);
    EXPECT_EQ(ticks, 15);
    EXPECT_EQ(first.size() + second.size(), 1u);

    runtime.advance(1ms);
    EXPECT_EQ(first.size() + second.size(), 2u);
    EXPECT_EQ(count(system, "copy event 15 0 0 of gpu"), 6);
    runtime.abandon();
}

INSTANTIATE_TEST_SUITE_P(Seeds, HIDSensorReaderTest, testing::Values(0, 1, 2, 3));

}  // namespace
}  // namespace airflow::sensors
