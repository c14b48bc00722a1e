// Any answers of the SMC's driver, under the connection, the sensor reader and the controller. In
// the end the driver is honest again, and then every fan goes back.
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "FalsifiedDriver.h"
#include "Input.h"
#include "concurrency/Require.h"
#include "control/LocalFanController.h"
#include "numbers/Units.h"
#include "sensors/SMCConnectionReading.h"
#include "sensors/SensorReader.h"
#include "sensors/hid/HIDBridge.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/SMCConnection.h"

namespace airflow::fuzz {
namespace {

using concurrency::require;
using simulation::FanMode;
using namespace std::chrono_literals;

constexpr std::array<const char*, 8> machines{"no-hid",     "unlock",      "busy",
                                              "lower-case", "no-mode-key", "reclaiming",
                                              "fanless",    "left-forced"};

/// Everything between the driver and the controller, without HID, so that temperatures come from
/// the SMC, too.
class System {
public:
    explicit System(Input& input)
        : mac(*simulation::machinePreset(input.oneOf(machines)),
              [this] { return runtime.now().time_since_epoch(); }),
          driver(mac.smc(), input),
          controller(std::make_shared<control::LocalFanController>(runtime, connection, sensors,
                                                                   [] { return 0U; })) {
        require(runtime.run(connection.open()).has_value(), "an honest driver can be opened");
    }
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    ~System() { runtime.abandon(); }

    /// Whatever the input asks for, one command at a time.
    void perform(Input& input) {
        const numbers::FanIndex fan(static_cast<std::int64_t>(input.below(3)));
        switch (input.below(8)) {
            case 0: (void)runtime.run(controller->restoreAllFansToAutomatic()); break;
            case 1: check(runtime.run(sensors.snapshot())); break;
            case 2: (void)runtime.run(controller->setManual(fan, numbers::WholeRPM(2500))); break;
            case 3: (void)runtime.run(controller->setPercent(fan, numbers::Percent(40))); break;
            case 4: (void)runtime.run(controller->fullBlast()); break;
            case 5: (void)runtime.run(connection.discoverTempKeys()); break;
            case 6: runtime.advance(std::chrono::seconds(input.below(8))); break;
            default: (void)runtime.run(controller->automatic());
        }
    }

    /// From here on the driver is honest, whatever came before. A claim that is still under way may
    /// succeed after a release, up to 10 s for each fan; the next release ends that.
    void recover() {
        (void)runtime.run(controller->restoreAuto());
        runtime.advance(40s);
        (void)runtime.run(controller->restoreAllFansToAutomatic());
        (void)runtime.run(controller->restoreAuto());
        runtime.advance(5s);
        for (std::size_t fan = 0; fan < mac.fanCount(); ++fan) {
            require(mac.fan(fan).mode != FanMode::forced, "fans go back once the SMC lets them");
        }
        require(!mac.forceTest(), "Ftst is lowered once the fans are back");
    }

private:
    static void check(const sensors::SensorSnapshot& snapshot) {
        for (const sensors::TempSensor& temp : snapshot.temps) {
            require(std::isfinite(temp.celsius), "a temperature is a number");
        }
        require(snapshot.fans.size() <= 10, "keys name ten fans at most");
    }

    simulation::SimulatedRuntime runtime;
    simulation::SimulatedMac mac;
    FalsifiedDriver driver;
    smc::SMCConnection connection{runtime, driver};
    sensors::SMCConnectionReading reading{connection};
    sensors::HIDFunctions noFunctions{sensors::HIDFunctions::Table{}};
    sensors::HIDBridge bridge{noFunctions, mac.hid(), runtime};
    simulation::RecordedLines standardError;
    sensors::SensorReader sensors{runtime, reading, bridge, standardError};
    std::shared_ptr<control::LocalFanController> controller;
};

}  // namespace
}  // namespace airflow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace airflow::fuzz;
    if (size > 4096) return 0;
    Input input(data, size);
    System system(input);
    for (int commands = 0; commands < 8 && !input.isEmpty(); ++commands) system.perform(input);
    while (!input.isEmpty()) (void)input.byte();
    system.recover();
    return 0;
}
