#include "simulation/verification/SwarmScenario.h"

#include <array>
#include <utility>

#include "simulation/verification/Swarm.h"

namespace airflow::simulation {

namespace {

using namespace std::chrono_literals;

/// One kind of trouble, and in how many of a hundred scenarios it is.
struct Part {
    int percent;
    void (*make)(Swarm& swarm);
};

constexpr std::array parts{
    Part{50, makeReleaseRefusals}, Part{40, makeClaimTrouble}, Part{40, makeResults},
    Part{25, makeLatency},         Part{25, makeFalseAnswers}, Part{25, makeReadings},
    Part{30, makeFirmware},        Part{50, makeHeat},         Part{25, makeClockJumps},
    Part{50, makeProcessEvents},   Part{15, makeUpgrade},      Part{12, makeHang},
    Part{12, makePartialPlans},    Part{2, makeBacklog},       Part{12, makeReaders},
    Part{5, makeHeldHeat},
};

/// Of a thousand scenarios: they take many times as long as others.
constexpr std::int64_t longOnes = 8;

void makeTrouble(Swarm& swarm) {
    makeClients(swarm);
    for (const Part& part : parts) {
        if (swarm.random.chance(part.percent)) part.make(swarm);
    }
    // A start that fails at once is tried again and again: as fast as that costs too much.
    if (swarm.random.chance(70)) swarm.scenario.restartAfter = 100ms + swarm.random.upTo(10s);
    swarm.scenario.duration = troubleEnds + calm;
}

}  // namespace

Scenario swarmScenario(std::uint64_t seed, SwarmNumbers numbers) {
    Swarm swarm(seed);
    chooseMachine(swarm);
    if (swarm.random.below(1000) < longOnes)
        makeLongRefusal(swarm);
    else
        makeTrouble(swarm);
    // From a sequence of its own, so that it changes nothing of the rest.
    swarm.random = Random(seed ^ 0xA5A5A5A5A5A5A5A5U);
    if (numbers == SwarmNumbers::any && swarm.random.chance(10)) makeImpossibleNumbers(swarm);
    swarm.scenario.sortChanges();
    return std::move(swarm.scenario);
}

}  // namespace airflow::simulation
