#include "simulation/machine/DelayedSMC.h"

#include <memory>
#include <utility>

namespace airflow::simulation {

using concurrency::Task;

DelayedSMC::DelayedSMC(concurrency::Runtime& ownRuntime, smc::SMCConnection& smcConnection,
                       SimulatedSMC& simulatedSMC)
    : Actor(std::shared_ptr<concurrency::Executor>(std::shared_ptr<void>(),
                                                   &smcConnection.executor())),
      runtime(ownRuntime),
      connection(smcConnection),
      simulated(simulatedSMC) {}

Task<smc::SMCWriting::WriteResult> DelayedSMC::writeUInt8(std::string key, std::uint8_t value) {
    auto result = co_await connection.writeUInt8(std::move(key), value);
    co_await waitForAnswer();
    co_return result;
}

Task<smc::SMCWriting::WriteResult> DelayedSMC::writeFloat(std::string key, double value) {
    auto result = co_await connection.writeFloat(std::move(key), value);
    co_await waitForAnswer();
    co_return result;
}

Task<std::optional<smc::SMCValue>> DelayedSMC::tryReadValue(std::string key) {
    auto value = co_await connection.tryReadValue(std::move(key));
    co_await waitForAnswer();
    co_return value;
}

Task<std::expected<smc::SMCValue, smc::SMCError>> DelayedSMC::readValue(std::string key) {
    auto value = co_await connection.readValue(std::move(key));
    co_await waitForAnswer();
    co_return value;
}

Task<std::vector<std::string>> DelayedSMC::discoverTempKeys() {
    auto keys = co_await connection.discoverTempKeys();
    co_await waitForAnswer();
    co_return keys;
}

Task<void> DelayedSMC::waitForAnswer() {
    const concurrency::Duration latency = simulated.takeLatency();
    if (latency > concurrency::Duration::zero()) co_await runtime.blockingSleep(latency);
}

}  // namespace airflow::simulation
