// What the SMC refuses, answers late, or cannot do for a while.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simulation/verification/Swarm.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

constexpr std::int32_t ioError = -536870212;

/// A plan that holds all fans at a fixed speed.
plan::FanControlPlan holdingAll(Swarm& swarm) {
    plan::FanControlPlan plan;
    for (std::size_t fan = 0; fan < swarm.fanCount(); ++fan) {
        const double percent = 1 + static_cast<double>(swarm.random.below(100));
        plan.fans.push_back({.fanID = static_cast<std::int64_t>(fan),
                             .mode = plan::FanControlModePlan::fixedPercent(percent)});
    }
    return plan;
}

void send(Swarm& swarm, Duration at, const std::string& client, plan::FanControlPlan plan) {
    swarm.scenario.events.emplace_back(Call{
        .at = at, .client = client, .method = Call::Method::applyConfig, .plan = std::move(plan)});
}

/// What may make fans go back at the time when they begin to refuse.
void endControl(Swarm& swarm, Duration at, const std::string& client) {
    Call call{.at = at, .client = client, .method = Call::Method::automatic};
    switch (swarm.random.below(4)) {
        case 0: call.method = Call::Method::restoreAuto; break;
        case 1:
            swarm.scenario.events.emplace_back(ConnectionChange{
                .at = at, .kind = ConnectionChange::Kind::disconnect, .client = client});
            return;
        case 2: return;  // the client falls silent
        default: break;
    }
    swarm.scenario.events.emplace_back(std::move(call));
}

}  // namespace

void makeReleaseRefusals(Swarm& swarm) {
    static const std::vector<std::uint8_t> results{0x82, 0x86, 0x87, 0x01, 0xFF};
    for (std::int64_t i = 1 + swarm.random.below(2); i > 0; --i) {
        swarm.add(swarm.span(40s),
                  {.key = swarm.anyModeKey(), .value = 0, .result = swarm.random.oneOf(results)});
    }
    if (swarm.random.chance(30))
        swarm.add(swarm.span(30s), {.key = "Ftst", .value = 0, .result = 0x86});
}

void makeClaimTrouble(Swarm& swarm) {
    const std::uint8_t result = swarm.random.chance(50) ? 0x82 : 0x86;
    swarm.add(swarm.span(20s), {.key = swarm.anyModeKey(), .value = 1, .result = result});
    if (swarm.random.chance(30))
        swarm.add(swarm.span(30s), {.key = "Ftst", .value = 1, .result = 0x86});
}

void makeResults(Swarm& swarm) {
    Fault fault{.key = swarm.random.chance(30) ? "*" : swarm.anyModeKey()};
    switch (swarm.random.below(3)) {
        case 0: fault.kernelReturn = ioError; break;
        case 1:
            fault.result = 0x84;
            fault.operation = Fault::Operation::information;
            break;
        default: fault.result = 0x82;
    }
    swarm.add(swarm.span(15s), fault);
    if (swarm.random.chance(30)) {
        swarm.add(swarm.span(10s),
                  {.key = "FNum", .operation = Fault::Operation::read, .result = 0x84});
    }
    if (swarm.random.chance(30)) swarm.add(swarm.span(20s), {.key = "F0Tg", .result = 0x87});
}

void makeLatency(Swarm& swarm) {
    const bool isEvery = swarm.random.chance(30);
    const bool isWrite = swarm.random.chance(70);
    swarm.add(swarm.span(20s),
              {.key = isEvery ? "*" : swarm.anyModeKey(),
               .operation = isWrite ? Fault::Operation::write : Fault::Operation::read,
               .latency = swarm.random.upTo(isEvery ? 500ms : 5s)});
}

void makePartialPlans(Swarm& swarm) {
    if (swarm.fanCount() < 2) return;
    const std::string client = anyClient(swarm);
    const Duration begin = swarm.random.upTo(swarm.random.chance(50) ? 5s : 30s);
    plan::FanControlPlan plan = holdingAll(swarm);
    send(swarm, begin, client, plan);
    const std::int64_t dropped = swarm.anyFan();
    const Duration drop = begin + 1s + swarm.random.upTo(10s);
    const bool isLong = swarm.random.chance(30);
    const Duration refused = isLong ? 40s : swarm.random.upTo(12s);
    const auto refusal = std::pair(drop - swarm.random.upTo(1s), drop + refused);
    swarm.add(refusal, {.key = swarm.modeKeyOf(dropped), .value = 0, .result = 0x86});
    plan.fans.erase(plan.fans.begin() + dropped);
    send(swarm, drop, client, plan);
    // In the middle of the retries, or of the one that succeeds.
    if (swarm.random.chance(50)) {
        send(swarm, drop + swarm.random.upTo(14s), client, holdingAll(swarm));
    }
    // Or the client falls silent while the fan refuses.
    const Duration heard = swarm.random.chance(50) ? 20s : 1s;
    swarm.scenario.events.emplace_back(
        Heartbeats{.at = begin, .client = client, .every = 5s, .until = drop + heard});
}

void makeLongRefusal(Swarm& swarm) {
    Random& random = swarm.random;
    const bool takesHours = random.chance(15);
    const Duration begin = 5s + random.upTo(10s);
    const Duration end = begin + 4min + random.upTo(takesHours ? 3h : 10min);
    send(swarm, 1s + random.upTo(2s), onlyClient, holdingAll(swarm));
    const std::int64_t refusing = swarm.anyFan();
    const std::string key = swarm.fanCount() == 0 ? "F0Md" : swarm.modeKeyOf(refusing);
    swarm.add({begin, end}, {.key = key, .value = 0, .result = 0x86});
    if (random.chance(30)) {
        swarm.add({begin, end}, {.key = swarm.anyModeKey(), .value = 0, .kernelReturn = ioError});
    }
    if (random.chance(20)) swarm.add({begin, end}, {.key = "Ftst", .value = 0, .result = 0x86});
    const Duration release = begin + random.upTo(5s);
    if (random.chance(30)) {
        plan::FanControlPlan partial = holdingAll(swarm);
        if (!partial.fans.empty()) partial.fans.erase(partial.fans.begin() + refusing);
        send(swarm, release, onlyClient, std::move(partial));
    } else {
        endControl(swarm, release, onlyClient);
    }
    if (random.chance(20)) {
        // Seconds before or after the end of the refusal.
        const Duration again = end - 5s + random.upTo(10s);
        send(swarm, again, "monitor", anyPlan(swarm));
    }
    if (random.chance(20)) {
        const Duration middle = begin + random.upTo(end - begin);
        swarm.scenario.events.emplace_back(
            ProcessEvent{.at = middle, .kind = ProcessEvent::Kind::kill});
    }
    swarm.scenario.restartAfter = 2s + random.upTo(60s);
    swarm.scenario.duration = end + calm;
}

}  // namespace airflow::simulation
