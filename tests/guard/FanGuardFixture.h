// FanGuardFixture: the guard and its gate over a simulated Mac; the test plays the controller and
// its clients.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "guard/FanGuard.h"
#include "simulation/daemon/SimulatedSystem.h"

namespace airflow::guard {

using namespace std::chrono_literals;
using simulation::FanMode;
using simulation::Fault;

constexpr std::uint8_t refused = simulation::SimulatedMac::refused;

class FanGuardTest : public testing::Test {
protected:
    FanGuardTest() {
        system.mac.smc().observer = [this](const simulation::SMCAccess& access) {
            if (access.operation == Fault::Operation::read) reads.push_back(access.key);
            if (access.operation != Fault::Operation::write) return;
            writes.push_back(fmt::format("{}={}", access.key, access.value));
        };
    }
    ~FanGuardTest() override { system.runtime.abandon(); }

    /// As the controller writes, whose checks and clients the test plays.
    void write(const std::string& key, std::uint8_t value) {
        (void)system.runtime.run(gate.writeUInt8(key, value));
    }
    void force(std::int64_t fan) {
        write(fmt::format("F{}Md", fan), 1);
        writes.clear();
    }
    /// A driver that works on one slow request after the other, up to `until`.
    static concurrency::Task<void> keepDriverBusy(FanGuardTest& test, concurrency::Duration until) {
        while (test.system.elapsed() < until) (void)co_await test.gate.tryReadValue("FNum");
    }
    [[nodiscard]] FanMode mode(std::size_t fan) { return system.mac.fan(fan).mode; }

    std::vector<std::string> writes;
    std::vector<std::string> reads;
    std::vector<control::ControlError> causes;
    std::vector<std::int64_t> givenBack;
    std::vector<std::int64_t> givenBackAtOnce;  ///< before a release
    simulation::SimulatedSystem system{*simulation::machinePreset("laptop")};
    SMCGate gate{system.smc.executor(), system.smc, system.smc};
    FanGuard guard{
        system.runtime, gate,
        [this](control::ControlError cause, const auto& taken) {
            causes.push_back(std::move(cause));
            for (const auto& after : taken) givenBackAtOnce.push_back(after.fan);
        },
        [this](control::ControlledFans::Request after) { givenBack.push_back(after.fan); },
        [] { return std::uint64_t{0}; }};
};

}  // namespace airflow::guard
