#include <gmock/gmock.h>

#include "sensors/SMCConnectionReading.h"
#include "sensors/SensorReaderFixture.h"
#include "smc/ScriptedUserClient.h"

namespace airflow::sensors {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SMCConnectionReadingTest : public testing::Test {
protected:
    SMCConnectionReadingTest() {
        driver.keys = {
            {.name = "#KEY", .type = "ui32", .bytes = {0, 0, 0, 7}},
            {.name = "FNum", .type = "ui8 ", .bytes = {0x01}},
            {.name = "F0Ac", .type = "fpe2", .bytes = {0x1F, 0x42}},
            {.name = "F0Mn", .type = "flt ", .bytes = {0x00, 0x40, 0x9C, 0x45}},
            {.name = "F0md", .type = "ui8 ", .bytes = {0x01}},
            {.name = "TB0T", .type = "sp78", .bytes = {0x1E, 0x80}},
            {.name = "TC0P", .type = "sp78", .bytes = {0x32, 0x00}},
        };
    }

    simulation::SimulatedRuntime runtime;
    smc::test::ScriptedUserClient driver;
    smc::SMCConnection connection{runtime, driver};
    SMCConnectionReading reading{connection};
};

TEST_F(SMCConnectionReadingTest, readsAndDiscoversThroughTheConnection) {
    ASSERT_TRUE(runtime.run(connection.open()));

    EXPECT_EQ(runtime.run(reading.tryReadValue("FNum")), smc::SMCValue::uint(1));
    EXPECT_EQ(runtime.run(reading.tryReadValue("F9Ac")), std::nullopt);
    EXPECT_THAT(runtime.run(reading.discoverTempKeys()), ElementsAre("TB0T", "TC0P"));
}

TEST_F(SMCConnectionReadingTest, aSnapshotIsMadeOfWhatTheDriverAnswers) {
    ASSERT_TRUE(runtime.run(connection.open()));
    tests::HIDSystem system(runtime, {}, "IOHIDEventSystemClientCreate");
    RecordedLog log;
    SensorReader reader(runtime, reading, *system.bridge, log);

    const SensorSnapshot snapshot = runtime.run(reader.snapshot());

    EXPECT_THAT(snapshot.fans, ElementsAre(Fan{.id = 0,
                                               .name = "Fan 0",
                                               .currentRPM = 2001,  // 2000.5
                                               .minRPM = 5000,
                                               .maxRPM = 0,
                                               .mode = 1}));
    EXPECT_THAT(snapshot.temps,
                ElementsAre(smcSensor("TB0T", "Battery", 30.5, SensorCategory::battery)));
}

TEST_F(SMCConnectionReadingTest, anEleventhFanIsNotBelieved) {
    ASSERT_TRUE(runtime.run(connection.open()));
    tests::HIDSystem system(runtime, {}, "IOHIDEventSystemClientCreate");
    RecordedLog log;
    SensorReader reader(runtime, reading, *system.bridge, log);

    driver.key("FNum").bytes = {10};
    EXPECT_EQ(runtime.run(reader.snapshot()).fans.size(), 10u);
    driver.key("FNum").bytes = {11};
    EXPECT_EQ(runtime.run(reader.snapshot()).fans.size(), 10u);
}

TEST_F(SMCConnectionReadingTest, aClosedConnectionGivesAnEmptySnapshot) {
    tests::HIDSystem system(runtime, {}, "IOHIDEventSystemClientCreate");
    RecordedLog log;
    SensorReader reader(runtime, reading, *system.bridge, log);

    const SensorSnapshot snapshot = runtime.run(reader.snapshot());

    EXPECT_THAT(snapshot.fans, IsEmpty());
    EXPECT_THAT(snapshot.temps, IsEmpty());
}

}  // namespace
}  // namespace airflow::sensors
