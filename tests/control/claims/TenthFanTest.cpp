// The last fan that keys can name is a fan like any other.
#include <gmock/gmock.h>

#include "ControllerHarness.h"
#include "guard/SMCGate.h"

namespace airflow::control {
namespace {

TEST(TenthFan, isNotForcedOnceTheGateIsClosed) {
    simulation::SimulatedSystem system{plainMachine(10)};
    guard::SMCGate gate{system.smc.executor(), system.smc, system.smc};
    gate.closeForExit();
    const auto written = system.runtime.run(gate.writeUInt8("F9Md", 1));
    ASSERT_FALSE(written.has_value());
    EXPECT_EQ(written.error(), smc::SMCError::withheld());
    EXPECT_EQ(system.mac.fan(9).mode, simulation::FanMode::automatic);
}

}  // namespace
}  // namespace airflow::control
