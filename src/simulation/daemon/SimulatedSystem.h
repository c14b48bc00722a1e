// SimulatedSystem: a simulated Mac, and above it everything that runs on a real one, in virtual
// time.
#pragma once

#include <cstdint>
#include <memory>

#include "control/LocalFanController.h"
#include "sensors/SensorReader.h"
#include "sensors/hid/HIDBridge.h"
#include "sensors/hid/HIDFunctions.h"
#include "simulation/machine/DelayedSMC.h"
#include "simulation/machine/MachineDescription.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/SMCConnection.h"

namespace airflow::simulation {

class SimulatedSystem {
public:
    struct Options {
        std::uint64_t seed = 0;  ///< of schedule and jitter; 0: executors take turns
        double jitter = 0.05;    ///< °C, of HID samples
        std::uint32_t effectiveUserID = 0;
    };

    /// The connection to the SMC is open, and no controller operation has run.
    SimulatedSystem(MachineDescription machine, Options options);
    explicit SimulatedSystem(MachineDescription machine)
        : SimulatedSystem(std::move(machine), Options{}) {}
    SimulatedSystem(const SimulatedSystem&) = delete;
    SimulatedSystem& operator=(const SimulatedSystem&) = delete;
    ~SimulatedSystem();

    /// Virtual time since the machine was switched on.
    [[nodiscard]] concurrency::Duration elapsed() const { return runtime.now().time_since_epoch(); }

    SimulatedRuntime runtime;
    SimulatedMac mac;
    RecordedLines standardError;
    std::uint32_t effectiveUserID;
    smc::SMCConnection connection;
    DelayedSMC smc;
    sensors::HIDFunctions hidFunctions;
    sensors::HIDBridge bridge;
    sensors::SensorReader sensors;
    std::shared_ptr<control::LocalFanController> controller;
};

}  // namespace airflow::simulation
