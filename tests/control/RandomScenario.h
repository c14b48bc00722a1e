// RandomScenario: commands, faults, latencies, heat and silence, as a seed draws them.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "simulation/machine/SimulatedMac.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::control {

/// Faults and commands end here.
constexpr concurrency::Duration troubleEnds = std::chrono::seconds(40);

/// What a seed means is the standard library's choice.
class RandomScenario {
public:
    using Call = simulation::Call;
    using Duration = concurrency::Duration;
    using Fault = simulation::Fault;

    explicit RandomScenario(std::uint64_t seed) : random(seed) {}

    /// How long it goes on is the caller's.
    simulation::Scenario make() {
        using namespace std::chrono_literals;
        simulation::Scenario scenario;
        scenario.machine = machine();
        scenario.jitter = chance(0.8) ? 0.05 : 0;
        for (int i = below(6); i > 0; --i) scenario.faults.push_back(fault());
        for (int i = below(3); i > 0; --i) {
            scenario.firmware.push_back({.at = moment(),
                                         .key = modeKeyOf(below(fanCount)),
                                         .value = chance(0.5) ? 3.0 : 0.0});
        }
        std::ranges::sort(scenario.firmware, {}, &simulation::FirmwareChange::at);
        for (int i = below(5); i > 0; --i) scenario.temperatures.push_back(temperatures());
        std::ranges::sort(scenario.temperatures, {}, &simulation::TemperatureChange::at);
        for (int i = 1 + below(8); i > 0; --i) scenario.events.emplace_back(call());
        if (chance(0.7)) {
            scenario.events.emplace_back(simulation::Heartbeats{
                .at = moment() / 4, .every = 1s + moment() / 8, .until = moment()});
        }
        // Forward only: set back, the wall clock voids the bound, as the watchdog runs on it. That
        // is pinned in SafetyChecksTest.
        if (chance(0.2)) {
            scenario.events.emplace_back(
                simulation::WallClockJump{.at = moment(), .seconds = below(3600) + 0.0});
        }
        return scenario;
    }

private:
    int below(int limit) {
        return std::uniform_int_distribution<int>(0, std::max(limit - 1, 0))(random);
    }
    bool chance(double share) { return std::bernoulli_distribution(share)(random); }
    Duration moment() {
        return Duration(std::uniform_int_distribution<std::int64_t>(
            0, Duration(troubleEnds).count() - 1)(random));
    }
    std::string modeKeyOf(int fan) const {
        const auto index = static_cast<std::size_t>(fan);
        return isLowerCase ? simulation::lowerModeKey(index) : simulation::upperModeKey(index);
    }

    simulation::MachineDescription machine() {
        using namespace std::chrono_literals;
        simulation::MachineDescription machine;
        fanCount = 1 + below(3);
        isLowerCase = chance(0.2);
        for (int fan = 0; fan < fanCount; ++fan) {
            machine.fans.push_back({.modeKey = modeKeyOf(fan),
                                    .mode = chance(0.2) ? std::uint8_t{1} : std::uint8_t{0}});
        }
        machine.hid = simulation::Temperatures{{"PMU tdie1", 50}, {"GPU", 48}};
        if (chance(0.2)) machine.hid.reset();
        if (chance(0.7)) machine.smc = {{"TCMz", 45}, {"TG0D", 44}};
        if (chance(0.3)) machine.forceTestDelay = 300ms;
        if (chance(0.3)) machine.busy = std::chrono::seconds(below(4));
        if (chance(0.2)) machine.reclaimAfter = 5s;
        return machine;
    }

    Fault fault() {
        Fault fault;
        fault.from = moment();
        fault.until = std::min(fault.from + moment() / 2, troubleEnds);
        const std::vector<std::string> keys{modeKeyOf(0), modeKeyOf(fanCount - 1), "Ftst", "F0Tg",
                                            "*"};
        fault.key = keys[static_cast<std::size_t>(below(5))];
        fault.operation =
            chance(0.7) ? Fault::Operation::write
                        : (chance(0.5) ? Fault::Operation::read : Fault::Operation::information);
        if (fault.operation == Fault::Operation::write && chance(0.4)) fault.value = below(2);
        switch (below(5)) {
            case 0: fault.result = 0x86; break;
            case 1: fault.result = 0x82; break;
            case 2: fault.kernelReturn = -536870212; break;
            case 3: fault.latency = std::chrono::milliseconds(below(2000)); break;
            default: fault.result = 0x87; fault.effect = Fault::Effect::applied;
        }
        return fault;
    }

    simulation::TemperatureChange temperatures() {
        simulation::TemperatureChange change{.at = moment()};
        switch (below(3)) {
            case 0: change.hidesHID = true; break;
            case 1: change.hid = {{"PMU tdie1", 96.0}}; break;
            default: change.hid = {{"PMU tdie1", 30.0 + below(60)}};
        }
        return change;
    }

    plan::FanControlPlan plan() {
        plan::FanControlPlan plan;
        for (int fan = 0; fan < fanCount; ++fan) {
            if (chance(0.2)) continue;
            plan::FanCurve curve;
            curve.points = {{.id = {}, .celsius = 40, .percent = 0.0},
                            {.id = {}, .celsius = 80, .percent = 100}};
            if (chance(0.3)) curve.sourceSensorID = "HID-SoC";
            plan.fans.push_back({.fanID = fan,
                                 .mode = chance(0.7) ? plan::FanControlModePlan::curve(curve)
                                         : chance(0.5)
                                             ? plan::FanControlModePlan::fixedPercent(below(101))
                                             : plan::FanControlModePlan::automatic()});
        }
        return plan;
    }

    Call call() {
        Call call{.at = moment()};
        switch (below(7)) {
            case 0: call.method = Call::Method::automatic; break;
            case 1: call.method = Call::Method::restoreAuto; break;
            case 2: call.method = Call::Method::fullBlast; break;
            case 3:
                call.method = Call::Method::setManualRPM;
                call.fan = below(fanCount);
                call.rpm = below(7000);
                break;
            case 4:
                call.method = Call::Method::setPercent;
                call.fan = below(fanCount);
                call.percent = below(120);
                break;
            default: call.method = Call::Method::applyConfig; call.plan = plan();
        }
        return call;
    }

    std::mt19937_64 random;
    int fanCount = 1;
    bool isLowerCase = false;
};

}  // namespace airflow::control
