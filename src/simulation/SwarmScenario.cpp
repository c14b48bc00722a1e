#include "simulation/SwarmScenario.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "simulation/Random.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

class Swarm {
public:
    explicit Swarm(std::uint64_t seed) : random(seed) {}

    Scenario make() {
        chooseMachine();
        makeClients();
        if (random.chance(50)) makeReleaseRefusals();
        if (random.chance(40)) makeClaimTrouble();
        if (random.chance(40)) makeResults();
        if (random.chance(25)) makeLatency();
        if (random.chance(25)) makeLies();
        if (random.chance(25)) makeReadings();
        if (random.chance(30)) makeFirmware();
        if (random.chance(50)) makeHeat();
        if (random.chance(25)) makeClockJumps();
        if (random.chance(50)) makeProcessEvents();
        sortByTime(scenario.firmware);
        sortByTime(scenario.temperatures);
        // Some time has to pass, or a start that fails at once is tried for ever in one moment.
        if (random.chance(70)) scenario.restartAfter = 1ms + random.upTo(10s);
        scenario.duration = troubleEnds + calm;
        return std::move(scenario);
    }

private:
    template <typename T>
    static void sortByTime(std::vector<T>& changes) {
        // Stable, and the same everywhere: what an unstable sort does is the library's choice.
        for (std::size_t i = 1; i < changes.size(); ++i) {
            for (std::size_t j = i; j > 0 && changes[j].at < changes[j - 1].at; --j) {
                std::swap(changes[j], changes[j - 1]);
            }
        }
    }

    Duration moment() { return random.upTo(troubleEnds); }
    std::pair<Duration, Duration> span(Duration longest) {
        const Duration from = moment();
        return {from, std::min(from + random.upTo(longest), troubleEnds)};
    }
    [[nodiscard]] std::string modeKeyOf(std::int64_t fan) const {
        const auto& key = scenario.machine.fans[static_cast<std::size_t>(fan)].modeKey;
        return key.value_or(upperModeKey(static_cast<std::size_t>(fan)));
    }
    std::int64_t anyFan() {
        return random.below(static_cast<std::int64_t>(scenario.machine.fans.size()));
    }
    std::string anyModeKey() {
        return scenario.machine.fans.empty() ? "F0Md" : modeKeyOf(anyFan());
    }
    void add(std::pair<Duration, Duration> when, Fault fault) {
        fault.from = when.first;
        fault.until = when.second;
        scenario.faults.push_back(std::move(fault));
    }

    void chooseMachine() {
        static const std::vector<std::string> names{
            "laptop",     "laptop",      "unlock", "busy",           "lower-case", "no-mode-key",
            "reclaiming", "left-forced", "no-hid", "no-hid-symbols", "fanless"};
        scenario.machine = machinePreset(random.oneOf(names)).value_or(MachineDescription{});
        for (FanDescription& fan : scenario.machine.fans) {
            if (random.chance(15)) fan.mode = 1;
        }
        if (random.chance(10)) scenario.jitter = 0;
        if (random.chance(3)) scenario.effectiveUserID = 501;
    }

    plan::FanControlPlan plan() {
        plan::FanControlPlan result;
        for (std::size_t fan = 0; fan < scenario.machine.fans.size(); ++fan) {
            if (random.chance(20)) continue;
            plan::FanCurve curve;
            curve.points = {{.id = {}, .celsius = 40, .percent = 0.0},
                            {.id = {}, .celsius = 90, .percent = 100}};
            const std::int64_t kind = random.below(10);
            auto mode = plan::FanControlModePlan::curve(curve);
            if (kind < 3) {
                mode =
                    plan::FanControlModePlan::fixedPercent(static_cast<double>(random.below(101)));
            }
            if (kind == 3) {
                mode = plan::FanControlModePlan::fixedRPM(static_cast<double>(random.below(8000)));
            }
            if (kind == 4) mode = plan::FanControlModePlan::automatic();
            result.fans.push_back({.fanID = static_cast<std::int64_t>(fan), .mode = mode});
        }
        return result;
    }

    Call call(Duration at, std::string client) {
        Call call{.at = at, .client = std::move(client)};
        switch (random.below(12)) {
            case 0: call.method = Call::Method::automatic; break;
            case 1: call.method = Call::Method::restoreAuto; break;
            case 2: call.method = Call::Method::fullBlast; break;
            case 3:
                call.method = Call::Method::setManualRPM;
                call.fan = anyFan();
                call.rpm = random.below(9000) - 1000;
                break;
            case 4:
            case 5:
                call.method = Call::Method::setPercent;
                call.fan = anyFan();
                call.percent = static_cast<double>(random.below(130)) - 10;
                break;
            case 6: call.method = Call::Method::readState; break;
            case 7: call.method = Call::Method::helperVersion; break;
            case 8:
                call.method = Call::Method::applyConfig;
                call.document = random.oneOf(garbage());
                break;
            default: call.method = Call::Method::applyConfig; call.plan = plan();
        }
        return call;
    }
    /// Of UTF-8, since a scenario that fails has to be written as JSON.
    static const std::vector<std::string>& garbage() {
        static const std::vector<std::string> documents{
            "", "not json", "{}", "[]", R"({"fans":7})", R"({"fans":[],"rules":[]})", "\x7f"};
        return documents;
    }

    void makeClients() {
        static const std::vector<std::string> names{"app", "monitor", "script"};
        const std::int64_t count = 1 + random.below(3);
        for (std::int64_t i = 0; i < count; ++i) makeClient(names[static_cast<std::size_t>(i)]);
        if (random.chance(10)) {
            scenario.events.emplace_back(
                ConnectionChange{.at = moment(), .client = "stranger", .isStranger = true});
            scenario.events.emplace_back(call(moment(), "stranger"));
        }
        if (random.chance(10)) {
            scenario.events.emplace_back(
                Call{.at = moment(), .method = Call::Method::shutdownForUpgrade});
        }
    }

    void makeClient(const std::string& name) {
        const bool isStorm = random.chance(10);
        const std::int64_t count = isStorm ? 30 : 1 + random.below(7);
        const Duration storm = moment();
        for (std::int64_t i = 0; i < count; ++i) {
            const Duration at = isStorm ? storm + random.upTo(500ms) : moment();
            scenario.events.emplace_back(call(at, name));
        }
        if (random.chance(70)) {
            const Duration from = random.upTo(20s);
            scenario.events.emplace_back(Heartbeats{.at = from,
                                                    .client = name,
                                                    .every = 1s + random.upTo(16s),
                                                    .until = from + random.upTo(troubleEnds)});
        }
        for (std::int64_t i = random.below(3); i > 0; --i) {
            scenario.events.emplace_back(ConnectionChange{
                .at = moment(), .kind = ConnectionChange::Kind::disconnect, .client = name});
        }
    }

    void makeReleaseRefusals() {
        static const std::vector<std::uint8_t> results{0x82, 0x86, 0x87, 0x01, 0xFF};
        for (std::int64_t i = 1 + random.below(2); i > 0; --i) {
            add(span(40s), {.key = anyModeKey(), .value = 0, .result = random.oneOf(results)});
        }
        if (random.chance(30)) add(span(30s), {.key = "Ftst", .value = 0, .result = 0x86});
    }
    void makeClaimTrouble() {
        add(span(20s), {.key = anyModeKey(),
                        .value = 1,
                        .result = random.chance(50) ? std::uint8_t{0x82} : std::uint8_t{0x86}});
        if (random.chance(30)) add(span(30s), {.key = "Ftst", .value = 1, .result = 0x86});
    }
    void makeResults() {
        constexpr std::int32_t ioError = -536870212;
        Fault fault{.key = random.chance(30) ? "*" : anyModeKey()};
        switch (random.below(3)) {
            case 0: fault.kernelReturn = ioError; break;
            case 1:
                fault.result = 0x84;
                fault.operation = Fault::Operation::information;
                break;
            default: fault.result = 0x82;
        }
        add(span(15s), fault);
        if (random.chance(30))
            add(span(10s), {.key = "FNum", .operation = Fault::Operation::read, .result = 0x84});
        if (random.chance(30)) add(span(20s), {.key = "F0Tg", .result = 0x87});
    }
    void makeLatency() {
        const bool isEvery = random.chance(30);
        add(span(20s),
            {.key = isEvery ? "*" : anyModeKey(),
             .operation = random.chance(70) ? Fault::Operation::write : Fault::Operation::read,
             .latency = random.upTo(isEvery ? 500ms : 5s)});
    }
    void makeLies() {
        if (random.chance(50))
            add(span(20s), {.key = anyModeKey(), .effect = Fault::Effect::ignored});
        else
            add(span(20s), {.key = anyModeKey(), .result = 0x87, .effect = Fault::Effect::applied});
    }
    void makeReadings() {
        static const std::vector<double> readings{std::numeric_limits<double>::quiet_NaN(),
                                                  std::numeric_limits<double>::infinity(),
                                                  -1,
                                                  0,
                                                  1e9,
                                                  500};
        static const std::vector<std::string> keys{"F0Mn", "F0Mx", "F0Ac", "F1Mn", "F1Mx"};
        for (std::int64_t i = 1 + random.below(2); i > 0; --i) {
            add(span(30s), {.key = random.oneOf(keys),
                            .operation = Fault::Operation::read,
                            .reading = random.oneOf(readings)});
        }
    }
    void makeFirmware() {
        if (scenario.machine.fans.empty()) return;
        for (std::int64_t i = 1 + random.below(3); i > 0; --i) {
            scenario.firmware.push_back(
                {.at = moment(), .key = anyModeKey(), .value = random.chance(60) ? 3.0 : 0.0});
        }
    }
    void makeHeat() {
        if (!scenario.machine.hid || scenario.machine.hid->empty()) return;
        const std::string label = scenario.machine.hid->front().first;
        const Duration from = moment();
        switch (random.below(6)) {
            case 0: heat(from, label, 96 + static_cast<double>(random.below(20))); break;
            case 1:
                for (int i = 0; i < 8; ++i) heat(from + i * 1s, label, i % 2 ? 94.9 : 95.1);
                break;
            case 2: heat(from, label, std::numeric_limits<double>::quiet_NaN()); break;
            case 4: heat(from, label, 85 + static_cast<double>(random.below(9))); break;
            case 3: heat(from, label, random.chance(50) ? -5 : 1e30); break;
            default:
                scenario.temperatures.push_back({.at = from, .hidesHID = true});
                if (random.chance(50)) heat(from + random.upTo(10s), label, 50);
        }
        if (random.chance(60)) heat(std::min(from + random.upTo(20s), troubleEnds), label, 50);
    }
    void heat(Duration at, const std::string& label, double celsius) {
        scenario.temperatures.push_back({.at = at, .hid = {{label, celsius}}});
    }
    void makeClockJumps() {
        const std::int64_t limit = random.chance(50) ? 20 : 3600;
        scenario.events.emplace_back(WallClockJump{
            .at = moment(), .seconds = static_cast<double>(random.below(2 * limit) - limit)});
    }
    void makeProcessEvents() {
        for (std::int64_t i = 1 + random.below(3); i > 0; --i) {
            ProcessEvent event{.at = moment()};
            const std::int64_t kind = random.below(6);
            if (kind < 3) event.kind = ProcessEvent::Kind::kill;
            if (kind == 3) event.kind = ProcessEvent::Kind::interrupt;
            event.afterSteps = static_cast<std::uint64_t>(random.below(200));
            scenario.events.emplace_back(event);
            const Duration again = event.at + random.upTo(10s);
            scenario.events.emplace_back(
                ProcessEvent{.at = again, .kind = ProcessEvent::Kind::start});
            if (!random.chance(20)) continue;
            scenario.events.emplace_back(
                ProcessEvent{.at = again,
                             .kind = random.chance(70) ? ProcessEvent::Kind::kill
                                                       : ProcessEvent::Kind::terminate,
                             .afterSteps = static_cast<std::uint64_t>(random.below(40))});
        }
    }

    Random random;
    Scenario scenario;
};

}  // namespace

Scenario swarmScenario(std::uint64_t seed) {
    return Swarm(seed).make();
}

}  // namespace airflow::simulation
