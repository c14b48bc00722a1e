#include <gmock/gmock.h>

#include "daemon/Hardware.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::daemon {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class MachineHardwareTest : public testing::Test {
protected:
    ~MachineHardwareTest() override { runtime.abandon(); }

    simulation::SimulatedRuntime runtime{0};
    simulation::SimulatedMac mac{*simulation::machinePreset("laptop"),
                                 [this] { return runtime.now().time_since_epoch(); },
                                 {.jitter = 0}};
    simulation::RecordedLines log;
    sensors::HIDFunctions functions{mac.hidFunctions()};
    MachineHardware hardware{runtime, mac.smc(), functions, mac.hid(), log};
};

TEST_F(MachineHardwareTest, opensTheSMCAndWritesAndReadsThroughTheOneConnection) {
    ASSERT_TRUE(runtime.run(hardware.open()));
    EXPECT_EQ(runtime.run(hardware.smc().writeUInt8("Ftst", 1)), 0);
    EXPECT_TRUE(mac.forceTest());
    const auto count = runtime.run(hardware.smc().tryReadValue("FNum"));
    ASSERT_TRUE(count);
    EXPECT_EQ(count->numeric(), 2.0);
}

TEST_F(MachineHardwareTest, takesSnapshotsOfTheSameMachine) {
    ASSERT_TRUE(runtime.run(hardware.open()));
    const auto snapshot = runtime.run(hardware.sensors().snapshot());
    ASSERT_EQ(snapshot.fans.size(), 2U);
    EXPECT_EQ(snapshot.fans[1].id, 1);
    ASSERT_FALSE(snapshot.temps.empty());
    EXPECT_EQ(snapshot.temps.front().source, sensors::SensorSource::hid);
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(MachineHardwareTest, tellsWhyTheSMCDidNotOpen) {
    mac.smc().isPresent = false;
    const auto opened = runtime.run(hardware.open());
    ASSERT_FALSE(opened);
    EXPECT_EQ(opened.error().description(), "AppleSMC IOKit service not found");
}

}  // namespace
}  // namespace airflow::daemon
