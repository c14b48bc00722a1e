// HoldHarness: plans in one line each, requests in order, and operations that arrive at the worst
// moment, for the tests of plans and of the hold loop.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ControllerHarness.h"
#include "support/Plans.h"

namespace airflow::control {

using Mode = plan::FanControlModePlan;
using Texts = std::vector<std::string>;
using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::degreesAsPercent;

inline Mode rpm(double speed) {
    return Mode::fixedRPM(speed);
}
inline Mode percent(double share) {
    return Mode::fixedPercent(share);
}

/// A plan of (fan, mode), in this order.
inline plan::FanControlPlan planOf(const std::vector<std::pair<std::int64_t, Mode>>& fans) {
    plan::FanControlPlan plan;
    for (const auto& [fan, mode] : fans) plan.fans.push_back({.fanID = fan, .mode = mode});
    return plan;
}

/// The label of a sensor whose value may stand still without being taken for a dead channel.
inline const std::string steadyLabel = "gas gauge battery";

/// A machine whose one temperature is exactly what is asked for.
inline simulation::MachineDescription machineAt(double celsius, std::size_t fans = 2) {
    auto machine = plainMachine(fans);
    machine.hid = simulation::Temperatures{{steadyLabel, celsius}};
    return machine;
}

/// A machine at a calm and exact 50 °C: with fans from 1200 to 6000 RPM.
inline simulation::MachineDescription steadyMachine(std::size_t fans = 2) {
    return machineAt(50.0, fans);
}

constexpr simulation::SimulatedSystem::Options withoutJitter{.jitter = 0};

/// The SMC answers this write so, in this span.
inline Fault refusal(const std::string& key, double value, std::uint8_t result = 0x86,
                     concurrency::Duration from = {},
                     concurrency::Duration until = concurrency::Duration::max()) {
    return {.from = from, .until = until, .key = key, .value = value, .result = result};
}

/// Writes of the value to the key do not reach the SMC.
inline Fault failure(const std::string& key, double value) {
    return {.key = key, .value = value, .kernelReturn = -536870212};  // 0xE00002BC
}

/// Reads of the key give this, whatever it holds.
inline Fault misreading(const std::string& key, double reading, concurrency::Duration from = {},
                        concurrency::Duration until = concurrency::Duration::max()) {
    return {.from = from,
            .until = until,
            .key = key,
            .operation = Fault::Operation::read,
            .reading = reading};
}

/// The key is as if it were not there.
inline Fault missing(const std::string& key) {
    return {.key = key, .operation = Fault::Operation::information, .result = 0x84};
}

/// Every request takes this long.
inline void slowDown(ControllerHarness& harness, concurrency::Duration latency) {
    for (const auto operation : {Fault::Operation::read, Fault::Operation::write}) {
        harness.mac().smc().add(Fault{.operation = operation, .latency = latency});
    }
}

/// What was published, in order: "holding", "not holding", or one of them with ": " and the error.
inline Texts told(const std::vector<ControlState>& states) {
    Texts result;
    for (const ControlState& state : states) {
        std::string text = state.isHolding ? "holding" : "not holding";
        if (state.lastError) text += ": " + *state.lastError;
        result.push_back(std::move(text));
    }
    return result;
}

/// Forgets what reached the SMC and what was published up to now.
inline void forget(ControllerHarness& harness) {
    harness.writes.clear();
    harness.reads.clear();
    harness.published.clear();
}

/// Calls `action` with every read and write of a value that reaches the SMC from now on.
inline void watch(ControllerHarness& harness,
                  std::function<void(const simulation::SMCAccess&)> action) {
    auto& observer = harness.mac().smc().observer;
    observer = [before = observer,
                action = std::move(action)](const simulation::SMCAccess& access) {
        before(access);
        if (access.operation == Fault::Operation::read ||
            access.operation == Fault::Operation::write) {
            action(access);
        }
    };
}

/// Reads and writes in their one order, from now on: "F0Md" and "F0Md=1".
inline std::shared_ptr<Texts> watchRequests(ControllerHarness& harness) {
    const auto requests = std::make_shared<Texts>();
    watch(harness, [requests](const simulation::SMCAccess& access) {
        const bool isWrite = access.operation == Fault::Operation::write;
        requests->push_back(isWrite ? fmt::format("{}={}", access.key, access.value) : access.key);
    });
    return requests;
}

/// Calls `arrive` once, while the SMC has the `count`-th request from now on in hand.
inline void atRequest(ControllerHarness& harness, std::size_t count, std::function<void()> arrive) {
    const auto left = std::make_shared<std::size_t>(count);
    watch(harness, [left, arrive = std::move(arrive)](const simulation::SMCAccess&) {
        if (*left > 0 && --*left == 0) arrive();
    });
}

/// The same, counting only writes of this value to this key.
inline void atWrite(ControllerHarness& harness, const std::string& key, double value,
                    std::size_t count, std::function<void()> arrive) {
    const auto left = std::make_shared<std::size_t>(count);
    watch(harness, [=](const simulation::SMCAccess& access) {
        const bool fits = access.operation == Fault::Operation::write && access.key == key &&
                          access.value == value;
        if (fits && *left > 0 && --*left == 0) arrive();
    });
}

/// Puts a controller of another type, made with the harness's parts, in place of its own.
template <typename Controller>
std::shared_ptr<Controller> install(ControllerHarness& harness) {
    auto& system = harness.system;
    auto controller = std::make_shared<Controller>(system.runtime, system.smc, system.sensors,
                                                   [&system] { return system.effectiveUserID; });
    system.controller = controller;
    return controller;
}

/// Keeps every plan that reaches applyPlan(), and passes it on unless it has an answer of its own.
class PlanKeeper final : public LocalFanController {
public:
    using LocalFanController::LocalFanController;

    concurrency::Task<ControlResult> applyPlan(plan::FanControlPlan plan) override {
        plans.push_back(plan);
        if (answer) co_return *answer;
        co_return co_await LocalFanController::applyPlan(std::move(plan));
    }

    std::vector<plan::FanControlPlan> plans;
    std::optional<ControlResult> answer;
};

}  // namespace airflow::control
