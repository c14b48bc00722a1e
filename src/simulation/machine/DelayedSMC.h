// DelayedSMC: gives the answers of the simulated SMC the time they take.
#pragma once

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "sensors/SMCReading.h"
#include "simulation/machine/SimulatedSMC.h"
#include "smc/SMCConnection.h"
#include "smc/SMCWriting.h"

namespace airflow::simulation {

/// Stands in front of a connection and shares its executor, which outlives it. A driver call that
/// takes long blocks the connection's thread on a Mac; here it blocks that executor, so whoever
/// comes next is not even asked before the answer is there. What a request does to the machine is
/// done at its beginning.
class DelayedSMC final : public concurrency::Actor,
                         public smc::SMCWriting,
                         public sensors::SMCReading {
public:
    DelayedSMC(concurrency::Runtime& runtime, smc::SMCConnection& connection,
               SimulatedSMC& simulated);

    concurrency::Task<WriteResult> writeUInt8(std::string key, std::uint8_t value) override;
    concurrency::Task<WriteResult> writeFloat(std::string key, double value) override;
    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override;
    concurrency::Task<std::expected<smc::SMCValue, smc::SMCError>> readValue(
        std::string key) override;
    concurrency::Task<std::vector<std::string>> discoverTempKeys() override;

private:
    concurrency::Task<void> waitForAnswer();

    concurrency::Runtime& runtime;
    smc::SMCConnection& connection;
    SimulatedSMC& simulated;
};

}  // namespace airflow::simulation
