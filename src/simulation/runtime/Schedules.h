// Schedules: every schedule of a small run, one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {

/// Where a search for schedules ends. A deviation is a choice of anyone but the usual one.
struct ScheduleBounds {
    /// Who runs without a deviation: who has waited longest, so that all take turns; or who got
    /// work last, so that what runs goes on until it waits. A deviation delays the one by a step;
    /// it interrupts the other for as long as the interruption has work.
    enum class Usual : std::uint8_t { oldest, newest };

    Usual usual = Usual::oldest;
    std::size_t deviations = 1;  ///< at most, in one schedule
    std::uint64_t schedules = std::numeric_limits<std::uint64_t>::max();
};

struct Exploration {
    /// The run that failed, which ended the search.
    struct Failure {
        std::vector<std::size_t> choices;  ///< for replaying()
        std::string what;
    };

    std::uint64_t schedules = 0;  ///< that were run
    bool wasCut = false;          ///< the bound on deviations left out others
    bool wasStopped = false;      ///< and so did the bound on schedules
    std::size_t longest = 0;      ///< choices in one schedule
    std::optional<Failure> failure;

    /// Whether every schedule there is was run.
    [[nodiscard]] bool isComplete() const { return !wasCut && !wasStopped && !failure; }
};

/// Makes one run with the given choices, and returns what is wrong with it, or nothing. It must do
/// the same whenever the choices are the same.
using ScheduledRun = std::function<std::optional<std::string>(SimulatedRuntime::Chooser)>;

/// Runs every schedule within the bounds, depth first: with the usual choices first. Ends with the
/// first run that fails, or that did not repeat itself: that had another number of candidates, or
/// fewer choices, after the same ones.
[[nodiscard]] Exploration explore(const ScheduledRun& run, ScheduleBounds bounds);

/// Chooses once more what a run has chosen; then who has waited longest.
[[nodiscard]] SimulatedRuntime::Chooser replaying(std::vector<std::size_t> choices);

}  // namespace airflow::simulation
