// DrawnScenarios: what many seeds draw, and what a test asks of it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "simulation/verification/SwarmScenario.h"

namespace airflow::simulation {

/// Of the seeds from 1 to 3000.
inline const std::vector<Scenario>& drawn() {
    static const auto scenarios = [] {
        std::vector<Scenario> all;
        for (std::uint64_t seed = 1; seed <= 3000; ++seed) all.push_back(swarmScenario(seed));
        return all;
    }();
    return scenarios;
}

inline std::size_t countIf(const std::function<bool(const Scenario&)>& holds) {
    return static_cast<std::size_t>(std::ranges::count_if(drawn(), holds));
}

template <typename T>
std::vector<T> eventsOf(const Scenario& scenario) {
    std::vector<T> found;
    for (const Event& event : scenario.events) {
        if (const T* each = std::get_if<T>(&event)) found.push_back(*each);
    }
    return found;
}

}  // namespace airflow::simulation
