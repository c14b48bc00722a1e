// Swarm: what the parts of a random scenario are drawn with and into. SwarmScenario.cpp says which
// parts there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "simulation/runtime/Random.h"
#include "simulation/scenario/Scenario.h"
#include "simulation/verification/SwarmScenario.h"

namespace airflow::simulation {

struct Swarm {
    using Duration = concurrency::Duration;
    using Span = std::pair<Duration, Duration>;

    explicit Swarm(std::uint64_t seed) : random(seed) {}

    [[nodiscard]] std::size_t fanCount() const { return scenario.machine.fans.size(); }
    /// One that the machine has; 0 when it has none.
    std::int64_t anyFan() { return random.below(static_cast<std::int64_t>(fanCount())); }
    std::string anyModeKey() { return fanCount() == 0 ? "F0Md" : modeKeyOf(anyFan()); }
    [[nodiscard]] std::string modeKeyOf(std::int64_t fan) const {
        const auto index = static_cast<std::size_t>(fan);
        return scenario.machine.fans.at(index).modeKey.value_or(upperModeKey(index));
    }
    [[nodiscard]] bool hasHID() const {
        const MachineDescription& machine = scenario.machine;
        return machine.hasHIDSymbols && machine.hid && !machine.hid->empty();
    }

    Duration moment() { return random.upTo(troubleEnds); }
    Span span(Duration longest) {
        const Duration from = moment();
        return {from, std::min(from + random.upTo(longest), troubleEnds)};
    }
    /// In microseconds, which is the time that a driver takes.
    Duration microsUpTo(Duration limit) {
        const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(limit).count();
        return std::chrono::microseconds(random.below(micros));
    }
    void add(Span when, Fault fault) {
        fault.from = when.first;
        fault.until = when.second;
        scenario.faults.push_back(std::move(fault));
    }

    Random random;
    Scenario scenario{};
};

// Each adds one kind of trouble.

// SwarmMachine.cpp
void chooseMachine(Swarm& swarm);
void makeFalseAnswers(Swarm& swarm);
void makeReadings(Swarm& swarm);
void makeFirmware(Swarm& swarm);
void makeHeat(Swarm& swarm);
/// Heat that stays, and a client that holds fans in it, perhaps one that stands still.
void makeHeldHeat(Swarm& swarm);
void makeHang(Swarm& swarm);
/// Numbers that name no fan that there can be, and counts of fans that there cannot be.
void makeImpossibleNumbers(Swarm& swarm);

// SwarmRefusals.cpp
void makeReleaseRefusals(Swarm& swarm);
void makeClaimTrouble(Swarm& swarm);
void makeResults(Swarm& swarm);
void makeLatency(Swarm& swarm);
/// A plan that drops a fan which refuses to go back.
void makePartialPlans(Swarm& swarm);
/// Hours of refusals; for a scenario of their own.
void makeLongRefusal(Swarm& swarm);

// SwarmClients.cpp
[[nodiscard]] plan::FanControlPlan anyPlan(Swarm& swarm);
[[nodiscard]] Call anyCall(Swarm& swarm, concurrency::Duration at, std::string client);
/// "app", "monitor" or "script".
[[nodiscard]] std::string anyClient(Swarm& swarm);
void makeClients(Swarm& swarm);
/// Clients that send some hundred commands in an instant, and go.
void makeBacklog(Swarm& swarm);
/// Somebody who asks for the state again and again.
void makeReaders(Swarm& swarm);
void makeClockJumps(Swarm& swarm);

// SwarmProcess.cpp
void makeProcessEvents(Swarm& swarm);
void makeUpgrade(Swarm& swarm);

}  // namespace airflow::simulation
