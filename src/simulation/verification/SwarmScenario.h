// SwarmScenario: what a seed makes happen to a whole daemon.
//
// The only place where a seed draws a scenario. The fuzzer of the daemon takes each choice from a
// byte of its input instead, so that it can change one without the others. Properties draw plans,
// ticks and documents with generators that shrink.
#pragma once

#include <cstdint>

#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

/// When the trouble of such a scenario usually ends. It goes on for as long as the fans may need to
/// be back with the firmware.
inline constexpr concurrency::Duration troubleEnds = std::chrono::seconds(60);
inline constexpr concurrency::Duration calm = std::chrono::seconds(120);

/// Whether commands name fans that no machine can have, and "FNum" tells of numbers of fans that
/// none can have.
enum class SwarmNumbers : std::uint8_t { possible, any };

inline constexpr SwarmNumbers swarmNumbers = SwarmNumbers::any;

/// A scenario with machine, clients, and faults of every layer. Each kind of fault is either in it
/// or not, as the seed draws: scenarios with a few kinds go deeper than those with a little of all.
/// The same seed is the same scenario in every build.
[[nodiscard]] Scenario swarmScenario(std::uint64_t seed, SwarmNumbers numbers = swarmNumbers);

}  // namespace airflow::simulation
