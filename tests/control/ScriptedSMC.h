// ScriptedSMC: an SMC that answers as a real one, except where a test says otherwise.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/LocalFanController.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::control {

class ScriptedSMC final : public smc::SMCWriting {
public:
    explicit ScriptedSMC(smc::SMCWriting& realSMC) : real(realSMC) {}

    concurrency::Task<WriteResult> writeUInt8(std::string key, std::uint8_t value) override {
        const auto answer = answers.find({key, value});
        if (answer != answers.end()) co_return answer->second;
        co_return co_await real.writeUInt8(std::move(key), value);
    }
    concurrency::Task<WriteResult> writeFloat(std::string key, double value) override {
        if (targetAnswer) co_return *targetAnswer;
        co_return co_await real.writeFloat(std::move(key), value);
    }
    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override {
        reads.push_back(key);
        const auto reading = readings.find(key);
        if (reading != readings.end()) co_return reading->second;
        co_return co_await real.tryReadValue(std::move(key));
    }

    concurrency::Task<std::expected<smc::SMCValue, smc::SMCError>> readValue(
        std::string key) override {
        co_return co_await real.readValue(std::move(key));
    }

    [[nodiscard]] bool takesForcing() const override { return isForcingTaken; }

    bool isForcingTaken = true;
    std::optional<WriteResult> targetAnswer;  ///< of every target; it does not reach the SMC
    std::map<std::pair<std::string, std::uint8_t>, WriteResult> answers;
    std::map<std::string, std::optional<smc::SMCValue>> readings;
    /// The keys that were tried, whether they are there or not.
    std::vector<std::string> reads;

private:
    smc::SMCWriting& real;
};

/// A machine and a controller that reaches it through a ScriptedSMC.
struct ScriptedHarness {
    explicit ScriptedHarness(simulation::MachineDescription machine) : system(std::move(machine)) {}

    template <typename T>
    T run(concurrency::Task<T> task) {
        return system.runtime.run(std::move(task));
    }

    simulation::SimulatedSystem system;
    ScriptedSMC smc{system.smc};
    std::shared_ptr<LocalFanController> controller = std::make_shared<LocalFanController>(
        system.runtime, smc, system.sensors, [] { return std::uint32_t{0}; });
};

}  // namespace airflow::control
