// How the daemon's process ends and begins, and what clients ask for at that moment.
#include <algorithm>
#include <string>
#include <utility>

#include "simulation/verification/Swarm.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

/// Writes take a while around that time: a release is then not over in an instant, and a command
/// may come between its writes.
void slowWrites(Swarm& swarm, Duration at) {
    const Duration latency = 100us + swarm.microsUpTo(swarm.random.chance(70) ? 5ms : 200ms);
    swarm.add({std::max(at - 500ms, Duration::zero()), at + 4s}, {.key = "*", .latency = latency});
}

/// Commands of several clients, each some time from `from` on.
void crowd(Swarm& swarm, Duration from, Duration length) {
    for (std::int64_t i = 1 + swarm.random.below(6); i > 0; --i) {
        const Duration at = std::max(from, Duration::zero()) + swarm.microsUpTo(length);
        const std::string client = anyClient(swarm);
        Call call = anyCall(swarm, at, client);
        // It takes every fan over, and that must not last.
        if (swarm.random.chance(40)) {
            call = {.at = at, .client = client, .method = Call::Method::fullBlast};
        }
        swarm.scenario.events.emplace_back(std::move(call));
    }
}

void makeProcessEvent(Swarm& swarm) {
    Random& random = swarm.random;
    auto& events = swarm.scenario.events;
    ProcessEvent event{.at = swarm.moment()};
    const std::int64_t kind = random.below(6);
    if (kind < 3) event.kind = ProcessEvent::Kind::kill;
    if (kind == 3) event.kind = ProcessEvent::Kind::interrupt;
    event.afterSteps = static_cast<std::uint64_t>(random.below(200));
    events.emplace_back(event);
    if (kind >= 3 && random.chance(50)) {
        crowd(swarm, event.at - 5ms, 20ms);
        if (random.chance(70)) slowWrites(swarm, event.at);
    }
    const Duration again = event.at + random.upTo(10s);
    events.emplace_back(ProcessEvent{.at = again, .kind = ProcessEvent::Kind::start});
    if (!random.chance(20)) return;
    const bool isKill = random.chance(70);
    events.emplace_back(
        ProcessEvent{.at = again,
                     .kind = isKill ? ProcessEvent::Kind::kill : ProcessEvent::Kind::terminate,
                     .afterSteps = static_cast<std::uint64_t>(random.below(40))});
}

}  // namespace

void makeProcessEvents(Swarm& swarm) {
    for (std::int64_t i = 1 + swarm.random.below(3); i > 0; --i) makeProcessEvent(swarm);
}

void makeUpgrade(Swarm& swarm) {
    const Duration at = swarm.moment();
    swarm.scenario.events.emplace_back(
        Call{.at = at, .client = anyClient(swarm), .method = Call::Method::shutdownForUpgrade});
    if (swarm.random.chance(30)) return;
    // The process ends 200 ms after the answer.
    crowd(swarm, at - 5ms, 230ms);
    if (swarm.random.chance(50)) slowWrites(swarm, at);
}

}  // namespace airflow::simulation
