// Soak: one random whole-daemon run and its verdict, and the smallest scenario that still fails.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

#include "simulation/oracle/Oracle.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

struct Verdict {
    std::optional<Violation> violation{};
    std::uint64_t hash = 0;  ///< of the trace: equal for equal runs, in every build
    std::array<std::uint64_t, sometimes.size()> counts{};
};

/// Plays the scenario to its end under the oracle. Throws Stuck as ScenarioRun::play does.
[[nodiscard]] Verdict judge(const Scenario& scenario, std::uint64_t seed);

using Judge = std::function<Verdict(const Scenario&, std::uint64_t seed)>;

/// Leaves out of a scenario that violates a property whatever it violates the same one without.
[[nodiscard]] Scenario shrink(Scenario scenario, std::uint64_t seed, Property property,
                              const Judge& judge);

}  // namespace airflow::simulation
