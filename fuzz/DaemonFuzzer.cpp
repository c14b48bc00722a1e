// Any sequence of messages, faults, signals and temperatures, through the whole daemon and under
// the oracle. What violates a property is printed as a scenario that can be played by hand.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "ChosenScenario.h"
#include "Input.h"
#include "json/Writer.h"
#include "simulation/oracle/Oracle.h"
#include "simulation/scenario/Scenario.h"
#include "simulation/verification/Soak.h"

namespace airflow::fuzz {
namespace {

[[noreturn]] void tell(const simulation::Scenario& scenario, std::uint64_t seed,
                       const std::string& what) {
    std::fprintf(stderr, "%s\nairflow simulate --seed %llu, with this scenario:\n%s\n",
                 what.c_str(), static_cast<unsigned long long>(seed),
                 json::encode(scenario).value_or("").c_str());
    std::abort();
}

void play(const simulation::Scenario& scenario, std::uint64_t seed) {
    try {
        const auto verdict = simulation::judge(scenario, seed);
        if (!verdict.violation) return;
        const auto& violation = *verdict.violation;
        const auto smallest =
            simulation::shrink(scenario, seed, violation.property, simulation::judge);
        tell(smallest, seed, describe(violation));
    } catch (const std::exception& failure) {
        tell(scenario, seed, failure.what());
    }
}

}  // namespace
}  // namespace airflow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace airflow::fuzz;
    if (size > 512) return 0;
    Input input(data, size);
    const std::uint64_t seed = input.below(3);
    play(chosenScenario(input), seed);
    return 0;
}
