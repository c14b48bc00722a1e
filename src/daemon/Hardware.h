// Hardware: what the daemon is built over, below the controller.
#pragma once

#include <expected>

#include "concurrency/Task.h"
#include "sensors/HIDBridge.h"
#include "sensors/LogSink.h"
#include "sensors/SMCConnectionReading.h"
#include "sensors/SensorReader.h"
#include "smc/SMCConnection.h"
#include "smc/SMCError.h"
#include "smc/SMCUserClient.h"
#include "smc/SMCWriting.h"

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
    [[nodiscard]] virtual smc::SMCWriting& smc() = 0;
    [[nodiscard]] virtual sensors::SensorReader& sensors() = 0;
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
          bridge(hidFunctions, hidObjects, runtime),
          reader(runtime, reading, bridge, standardError) {}

    [[nodiscard]] concurrency::Task<std::expected<void, smc::SMCError>> open() override {
        return connection.open();
    }
    [[nodiscard]] smc::SMCWriting& smc() override { return connection; }
    [[nodiscard]] sensors::SensorReader& sensors() override { return reader; }

private:
    smc::SMCConnection connection;
    sensors::SMCConnectionReading reading;
    sensors::HIDBridge bridge;
    sensors::SensorReader reader;
};

}  // namespace airflow::daemon
