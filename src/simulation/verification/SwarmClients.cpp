// What clients ask for, when, and how they leave.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulation/verification/Swarm.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

const std::vector<std::string>& clientNames() {
    static const std::vector<std::string> names{"app", "monitor", "script"};
    return names;
}

/// Of UTF-8, since a scenario that fails has to be written as JSON.
const std::vector<std::string>& garbage() {
    static const std::vector<std::string> documents{
        "", "not json", "{}", "[]", R"({"fans":7})", R"({"fans":[],"rules":[]})", "\x7f"};
    return documents;
}

/// A sensor's id; nothing: the hottest. The battery stays cool when others are hot, and not every
/// machine has them all.
std::optional<std::string> anySensor(Swarm& swarm, int percent) {
    static const std::vector<std::string> sensors{
        "HID-SoC", "HID-gas gauge battery", "HID-NAND CH0 temp", "SMC-TCHP", "SMC-TB0T", "none"};
    if (!swarm.random.chance(percent)) return std::nullopt;
    return swarm.random.oneOf(sensors);
}

/// Those that begin above what they follow let their fan stand still.
plan::FanCurve anyCurve(Swarm& swarm) {
    const double begin =
        40 + static_cast<double>(swarm.random.chance(60) ? 0 : swarm.random.below(30));
    plan::FanCurve curve;
    curve.sourceSensorID = anySensor(swarm, 30);
    curve.points = {{.id = {}, .celsius = begin, .percent = 0.0},
                    {.id = {}, .celsius = begin + 50, .percent = 100}};
    return curve;
}

plan::FanControlModePlan anyMode(Swarm& swarm) {
    using Mode = plan::FanControlModePlan;
    const std::int64_t kind = swarm.random.below(10);
    if (kind < 3) return Mode::fixedPercent(static_cast<double>(swarm.random.below(101)));
    if (kind == 3) return Mode::fixedRPM(static_cast<double>(swarm.random.below(8000)));
    if (kind == 4) return Mode::automatic();
    return Mode::curve(anyCurve(swarm));
}

/// Thresholds lie around the temperatures that machines have when nothing heats them, and above.
plan::FanRule anyRule(Swarm& swarm, std::uint8_t number) {
    Random& random = swarm.random;
    plan::FanRule rule{.id = {{number}}, .name = "rule", .sensorID = {}, .fanTarget = {}};
    rule.sensorID = anySensor(swarm, 40);
    rule.thresholdCelsius = 30 + static_cast<double>(random.below(65));
    rule.releaseBelowCelsius = rule.thresholdCelsius - static_cast<double>(random.below(10));
    rule.targetPercent = static_cast<double>(random.below(101));
    if (random.chance(50)) rule.fanTarget = plan::RuleFanTarget::fan(swarm.anyFan());
    rule.dwellSeconds = static_cast<double>(random.below(10));
    rule.enabled = random.chance(85);
    return rule;
}

void makeClient(Swarm& swarm, const std::string& name) {
    Random& random = swarm.random;
    auto& events = swarm.scenario.events;
    const bool isStorm = random.chance(10);
    const std::int64_t count = isStorm ? 30 : 1 + random.below(7);
    const Duration storm = swarm.moment();
    for (std::int64_t i = 0; i < count; ++i) {
        const Duration at = isStorm ? storm + random.upTo(500ms) : swarm.moment();
        events.emplace_back(anyCall(swarm, at, name));
    }
    if (random.chance(70)) {
        const Duration from = random.upTo(20s);
        const Duration every = 1s + random.upTo(16s);
        events.emplace_back(Heartbeats{
            .at = from, .client = name, .every = every, .until = from + random.upTo(troubleEnds)});
    }
    for (std::int64_t i = random.below(3); i > 0; --i) {
        events.emplace_back(ConnectionChange{
            .at = swarm.moment(), .kind = ConnectionChange::Kind::disconnect, .client = name});
    }
}

}  // namespace

std::string anyClient(Swarm& swarm) {
    return swarm.random.oneOf(clientNames());
}

plan::FanControlPlan anyPlan(Swarm& swarm) {
    plan::FanControlPlan result;
    for (std::size_t fan = 0; fan < swarm.fanCount(); ++fan) {
        if (swarm.random.chance(20)) continue;
        result.fans.push_back({.fanID = static_cast<std::int64_t>(fan), .mode = anyMode(swarm)});
    }
    if (!swarm.random.chance(15)) return result;
    const auto count = static_cast<std::uint8_t>(1 + swarm.random.below(2));
    for (std::uint8_t i = 1; i <= count; ++i) result.rules.push_back(anyRule(swarm, i));
    return result;
}

Call anyCall(Swarm& swarm, Duration at, std::string client) {
    Random& random = swarm.random;
    Call call{.at = at, .client = std::move(client)};
    switch (random.below(12)) {
        case 0: call.method = Call::Method::automatic; break;
        case 1: call.method = Call::Method::restoreAuto; break;
        case 2: call.method = Call::Method::fullBlast; break;
        case 3:
            call.method = Call::Method::setManualRPM;
            call.fan = swarm.anyFan();
            call.rpm = random.below(9000) - 1000;
            break;
        case 4:
        case 5:
            call.method = Call::Method::setPercent;
            call.fan = swarm.anyFan();
            call.percent = static_cast<double>(random.below(130)) - 10;
            break;
        case 6: call.method = Call::Method::readState; break;
        case 7: call.method = Call::Method::helperVersion; break;
        case 8:
            call.method = Call::Method::applyConfig;
            call.document = random.oneOf(garbage());
            break;
        default: call.method = Call::Method::applyConfig; call.plan = anyPlan(swarm);
    }
    return call;
}

void makeClients(Swarm& swarm) {
    const auto count = static_cast<std::size_t>(1 + swarm.random.below(3));
    for (std::size_t i = 0; i < count; ++i) makeClient(swarm, clientNames()[i]);
    if (!swarm.random.chance(10)) return;
    swarm.scenario.events.emplace_back(
        ConnectionChange{.at = swarm.moment(), .client = "stranger", .isUntrusted = true});
    const Duration at = swarm.moment();
    swarm.scenario.events.emplace_back(anyCall(swarm, at, "stranger"));
}

void makeBacklog(Swarm& swarm) {
    Random& random = swarm.random;
    auto& events = swarm.scenario.events;
    const Duration at = swarm.moment();
    const std::int64_t clients = 1 + random.below(3);
    const bool isMixed = random.chance(50);
    for (std::int64_t i = 0; i < clients; ++i) {
        const std::string name = "backlog " + std::to_string(i + 1);
        const Call always = anyCall(swarm, at, name);
        for (std::int64_t sent = (100 + random.below(300)) / clients; sent > 0; --sent) {
            events.emplace_back(isMixed ? anyCall(swarm, at, name) : always);
        }
        events.emplace_back(
            ConnectionChange{.at = at, .kind = ConnectionChange::Kind::disconnect, .client = name});
    }
}

void makeReaders(Swarm& swarm) {
    // Often, or for so long that a client which only reads would be taken for one that is heard.
    const bool isLong = swarm.random.chance(50);
    const Duration every = isLong ? 4s + swarm.random.upTo(10s) : 300ms + swarm.random.upTo(2s);
    const auto [from, end] = swarm.span(40s);
    const Duration until = isLong ? troubleEnds + calm / 2 : end;
    for (Duration at = from; at < until; at += every) {
        swarm.scenario.events.emplace_back(
            Call{.at = at, .client = "reader", .method = Call::Method::readState});
    }
}

void makeClockJumps(Swarm& swarm) {
    const std::int64_t limit = swarm.random.chance(50) ? 20 : 3600;
    for (std::int64_t i = swarm.random.chance(30) ? 2 : 1; i > 0; --i) {
        const Duration at = swarm.moment();
        const auto seconds = static_cast<double>(swarm.random.below(2 * limit) - limit);
        swarm.scenario.events.emplace_back(WallClockJump{.at = at, .seconds = seconds});
    }
}

}  // namespace airflow::simulation
