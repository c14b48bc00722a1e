// Hardware: what the daemon is built over, below the controller.
#pragma once

#include <expected>

#include "concurrency/Task.h"
#include "guard/SMCGate.h"
#include "sensors/LogSink.h"
#include "sensors/SMCConnectionReading.h"
#include "sensors/SensorReader.h"
#include "sensors/hid/HIDBridge.h"
#include "smc/SMCConnection.h"
#include "smc/SMCError.h"
#include "smc/SMCUserClient.h"

namespace airflow::daemon {

/// The one way to the SMC and the sensors. Lives as long as the process.
class Hardware {
public:
    Hardware() = default;
    Hardware(const Hardware&) = delete;
    Hardware& operator=(const Hardware&) = delete;
    virtual ~Hardware() = default;

    /// Comes before everything else. Fails with driverNotFound or openFailed.
    [[nodiscard]] virtual concurrency::Task<std::expected<void, smc::SMCError>> open() = 0;
    /// Everything that the daemon asks of the SMC passes it, the sensors' requests too.
    [[nodiscard]] virtual guard::SMCGate& smc() = 0;
    [[nodiscard]] virtual sensors::SnapshotSource& sensors() = 0;
};

/// The hardware of a machine whose SMC answers a user client and whose hub has the HID functions.
/// What it is given outlives it.
class MachineHardware final : public Hardware {
public:
    MachineHardware(concurrency::Runtime& runtime, smc::SMCUserClient& userClient,
                    const sensors::HIDFunctions& hidFunctions, sensors::HIDObjects& hidObjects,
                    sensors::LogSink& standardError)
        : connection(runtime, userClient),
          reading(connection),
          gate(connection.executor(), connection, reading),
          bridge(hidFunctions, hidObjects, runtime),
          reader(runtime, gate, bridge, standardError) {}

    [[nodiscard]] concurrency::Task<std::expected<void, smc::SMCError>> open() override {
        return connection.open();
    }
    [[nodiscard]] guard::SMCGate& smc() override { return gate; }
    [[nodiscard]] sensors::SnapshotSource& sensors() override { return reader; }

private:
    smc::SMCConnection connection;
    sensors::SMCConnectionReading reading;
    guard::SMCGate gate;
    sensors::HIDBridge bridge;
    sensors::SensorReader reader;
};

}  // namespace airflow::daemon
