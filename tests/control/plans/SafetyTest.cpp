// The promise, tried: whatever clients, faults, signals and temperatures come, the whole daemon
// keeps every property.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "simulation/verification/Soak.h"
#include "simulation/verification/SwarmScenario.h"

namespace airflow::control {
namespace {

/// Other seeds than those that `airflow soak` begins with.
constexpr std::uint64_t firstSeed = 1'000'001;
constexpr std::uint64_t seeds = 600;

/// A run in which none of these happened would say little about the controller.
constexpr std::array<std::string_view, 8> happens{
    "a release came in the middle of a claim",
    "a connection ended during a claim",
    "the ceiling came while a fan refused to go back",
    "the watchdog released fans",
    "the ceiling released fans",
    "missing temperatures released fans",
    "the firmware took a fan back",
    "two clients had commands under way at once",
};

TEST(Safety, everyPropertyHoldsInRandomRunsOfTheWholeDaemon) {
    std::array<std::uint64_t, simulation::sometimes.size()> counts{};
    for (std::uint64_t seed = firstSeed; seed < firstSeed + seeds; ++seed) {
        const auto verdict = simulation::judge(simulation::swarmScenario(seed), seed);
        EXPECT_FALSE(verdict.violation) << "seed " << seed << ": " << describe(*verdict.violation);
        for (std::size_t i = 0; i < counts.size(); ++i) counts.at(i) += verdict.counts.at(i);
    }
    for (const std::string_view wanted : happens) {
        const auto found = std::ranges::find(simulation::sometimes, wanted);
        ASSERT_NE(found, simulation::sometimes.end()) << wanted;
        const auto index = static_cast<std::size_t>(found - simulation::sometimes.begin());
        EXPECT_GT(counts.at(index), 0U) << "never: " << wanted;
    }
}

}  // namespace
}  // namespace airflow::control
