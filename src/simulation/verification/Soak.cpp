#include "simulation/verification/Soak.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "simulation/runtime/SimulatedRuntime.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {

namespace {

/// What is sought, and how it is told.
struct Search {
    std::uint64_t seed;
    Property property;
    const Judge& judge;

    [[nodiscard]] bool finds(const Scenario& scenario) const {
        try {
            const Verdict verdict = judge(scenario, seed);
            return verdict.violation && verdict.violation->property == property;
        } catch (const Stuck&) {
            return false;
        }
    }
};

/// Removes parts of one list, half of it first, then ever smaller ones.
template <typename T>
void thinOut(Scenario& scenario, std::vector<T> Scenario::* list, const Search& search) {
    for (std::size_t length = (scenario.*list).size(); length > 0; length /= 2) {
        for (std::size_t at = 0; at < (scenario.*list).size();) {
            Scenario smaller = scenario;
            std::vector<T>& elements = smaller.*list;
            const auto begin = elements.begin() + static_cast<std::ptrdiff_t>(at);
            const std::size_t count = std::min(length, elements.size() - at);
            elements.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
            if (search.finds(smaller))
                scenario = std::move(smaller);
            else
                at += length;
        }
    }
}

std::size_t sizeOf(const Scenario& scenario) {
    return scenario.events.size() + scenario.faults.size() + scenario.firmware.size() +
           scenario.temperatures.size() + scenario.hidHangs.size();
}

}  // namespace

Verdict judge(const Scenario& scenario, std::uint64_t seed) {
    Oracle oracle(scenario);
    ScenarioRun(scenario, oracle, seed).play(scenario.length());
    return {.violation = oracle.violation(), .hash = oracle.hash(), .counts = oracle.counts()};
}

Scenario shrink(Scenario scenario, std::uint64_t seed, Property property, const Judge& judge) {
    using namespace std::chrono_literals;
    const Search search{.seed = seed, .property = property, .judge = judge};
    if (const Verdict verdict = judge(scenario, seed); verdict.violation) {
        scenario.duration = std::chrono::ceil<std::chrono::seconds>(verdict.violation->time) + 1s;
    }
    for (std::size_t before = SIZE_MAX; sizeOf(scenario) < before;) {
        before = sizeOf(scenario);
        thinOut(scenario, &Scenario::events, search);
        thinOut(scenario, &Scenario::faults, search);
        thinOut(scenario, &Scenario::hidHangs, search);
        thinOut(scenario, &Scenario::temperatures, search);
        thinOut(scenario, &Scenario::firmware, search);
    }
    return scenario;
}

}  // namespace airflow::simulation
