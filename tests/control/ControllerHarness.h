// ControllerHarness: the real controller over a simulated Mac, in virtual time.
//
// The truth is asked of `mac`. What reached the SMC is in `writes`, in order; what was published
// is in `published`.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulation/daemon/SimulatedSystem.h"
#include "support/UnitLiterals.h"

namespace airflow::control {

using namespace std::chrono_literals;
using namespace tests::literals;

/// The SMC's answer to a write that it does not take.
inline constexpr std::uint8_t refused = simulation::SimulatedMac::refused;

/// A machine with plain keys, without jitter, whose behaviours a test switches on.
inline simulation::MachineDescription plainMachine(std::size_t fans = 2) {
    simulation::MachineDescription machine;
    for (std::size_t fan = 0; fan < fans; ++fan) {
        machine.fans.push_back({.modeKey = simulation::upperModeKey(fan)});
    }
    machine.hid = simulation::Temperatures{{"CPU", 50.0}};
    return machine;
}

class ControllerHarness {
public:
    explicit ControllerHarness(simulation::MachineDescription machine = plainMachine(),
                               simulation::SimulatedSystem::Options options = {})
        : system(std::move(machine), options) {
        system.mac.smc().observer = [this](const simulation::SMCAccess& access) { note(access); };
        system.runtime.detach("states", collect(*this));
    }

    template <typename T>
    T run(concurrency::Task<T> task) {
        return system.runtime.run(std::move(task));
    }
    /// Starts an operation without waiting for it; its result comes later.
    template <typename T>
    std::shared_ptr<std::optional<T>> start(concurrency::Task<T> task) {
        const auto result = std::make_shared<std::optional<T>>();
        system.runtime.detach("operation", deliver(std::move(task), result));
        return result;
    }
    void advance(concurrency::Duration duration) { system.runtime.advance(duration); }
    void settle() { system.runtime.settle(); }

    control::LocalFanController& controller() { return *system.controller; }
    simulation::SimulatedMac& mac() { return system.mac; }
    ControlState state() { return run(controller().currentState()); }

    /// "F0Md=1" and so on; a refused or failed write has its result after it: "F0Md=1 (0x86)".
    std::vector<std::string> writes;
    /// The same for reads of single values: "F0Md".
    std::vector<std::string> reads;
    std::vector<ControlState> published;
    simulation::SimulatedSystem system;

private:
    void note(const simulation::SMCAccess& access);
    static concurrency::Task<void> collect(ControllerHarness& harness);
    template <typename T>
    static concurrency::Task<void> deliver(concurrency::Task<T> task,
                                           std::shared_ptr<std::optional<T>> result) {
        result->emplace(co_await std::move(task));
    }
};

inline void ControllerHarness::note(const simulation::SMCAccess& access) {
    using Operation = simulation::Fault::Operation;
    if (access.operation == Operation::read) reads.push_back(access.key);
    if (access.operation != Operation::write) return;
    std::string write = fmt::format("{}={}", access.key, access.value);
    if (access.kernelReturn != 0)
        write += " (failed)";
    else if (access.result != 0)
        write += fmt::format(" (0x{:x})", access.result);
    writes.push_back(std::move(write));
}

inline concurrency::Task<void> ControllerHarness::collect(ControllerHarness& harness) {
    for (;;) {
        auto state = co_await harness.controller().stateStream().next();
        if (!state) co_return;
        harness.published.push_back(std::move(*state));
    }
}

}  // namespace airflow::control
