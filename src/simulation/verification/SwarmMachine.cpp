// What is random about the machine: its parts, its temperatures, and what its SMC says about them.
#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulation/verification/Swarm.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

/// Up to ten fans, whose mode keys are named as those of the machine are.
void addFans(Swarm& swarm) {
    std::vector<FanDescription>& fans = swarm.scenario.machine.fans;
    const auto wanted = static_cast<std::size_t>(1 + swarm.random.below(10));
    const FanDescription model = fans.empty() ? FanDescription{.modeKey = "F0Md"} : fans.front();
    fans.resize(std::min(wanted, fans.size()));
    while (fans.size() < wanted) {
        FanDescription fan = model;
        const std::size_t index = fans.size();
        const bool isLower = fan.modeKey == lowerModeKey(0) || swarm.random.chance(10);
        if (fan.modeKey) fan.modeKey = isLower ? lowerModeKey(index) : upperModeKey(index);
        if (swarm.random.chance(5)) fan.modeKey.reset();
        fan.maxRPM += 200 * static_cast<double>(index);
        fans.push_back(std::move(fan));
    }
}

/// Temperatures that the daemon takes for those of the machine: calibration channels and keys that
/// nobody has given a name to are not.
Temperatures readTemperatures(const Swarm& swarm) {
    static constexpr std::array<std::string_view, 4> known{"TC", "TG", "TB", "TD"};
    Temperatures temperatures =
        swarm.hasHID() ? *swarm.scenario.machine.hid : swarm.scenario.machine.smc;
    std::erase_if(temperatures, [&swarm](const auto& sensor) {
        const std::string_view name = sensor.first;
        if (swarm.hasHID()) return name.contains("tcal");
        return std::ranges::none_of(known, [name](auto front) { return name.starts_with(front); });
    });
    return temperatures;
}

/// Sets one sensor, wherever it is.
class Heater {
public:
    explicit Heater(Swarm& swarm) : swarm(swarm) {
        const Temperatures temperatures = readTemperatures(swarm);
        if (temperatures.empty()) return;
        // The first is the one that is hot in most of the runs, so that they resemble each other.
        name = swarm.random.chance(40) ? temperatures.front().first
                                       : swarm.random.oneOf(temperatures).first;
    }

    [[nodiscard]] bool hasSensor() const { return !name.empty(); }
    void set(Duration at, double celsius) {
        TemperatureChange change{.at = at};
        if (swarm.hasHID())
            change.hid = {{name, celsius}};
        else
            change.smc = {{name, celsius}};
        swarm.scenario.temperatures.push_back(std::move(change));
    }
    /// For a while the sensor cannot be read as a number that a temperature has.
    void spoil(Duration from, double reading) {
        if (swarm.hasHID()) return set(from, reading);
        swarm.add({from, troubleEnds},
                  {.key = name, .operation = Fault::Operation::read, .reading = reading});
    }
    /// All of them.
    void hide(Duration from) {
        if (swarm.hasHID()) swarm.scenario.temperatures.push_back({.at = from, .hidesHID = true});
        // Those of the SMC stand in for the others.
        if (!swarm.hasHID() || swarm.random.chance(50)) hideKeys(from);
        if (swarm.random.chance(50)) set(from + swarm.random.upTo(10s), 50);
    }

private:
    void hideKeys(Duration from) {
        const Duration until = from + swarm.random.upTo(20s);
        for (const auto& [key, celsius] : swarm.scenario.machine.smc) {
            swarm.add({from, until},
                      {.key = key, .operation = Fault::Operation::read, .result = 0x84});
        }
    }

    Swarm& swarm;
    std::string name;
};

}  // namespace

void chooseMachine(Swarm& swarm) {
    static const std::vector<std::string> names{
        "laptop",     "laptop",      "unlock", "busy",           "lower-case", "no-mode-key",
        "reclaiming", "left-forced", "no-hid", "no-hid-symbols", "fanless"};
    Scenario& scenario = swarm.scenario;
    scenario.machine = machinePreset(swarm.random.oneOf(names)).value_or(MachineDescription{});
    if (swarm.random.chance(12)) addFans(swarm);
    if (swarm.random.chance(10)) scenario.machine.hid.reset();
    for (FanDescription& fan : scenario.machine.fans) {
        if (swarm.random.chance(15)) fan.mode = 1;
    }
    if (swarm.random.chance(10)) scenario.jitter = 0;
    if (swarm.random.chance(3)) scenario.effectiveUserID = 501;
}

void makeFalseAnswers(Swarm& swarm) {
    if (swarm.random.chance(50))
        swarm.add(swarm.span(20s), {.key = swarm.anyModeKey(), .effect = Fault::Effect::ignored});
    else
        swarm.add(swarm.span(20s),
                  {.key = swarm.anyModeKey(), .result = 0x87, .effect = Fault::Effect::applied});
}

void makeReadings(Swarm& swarm) {
    static const std::vector<double> readings{notANumber, infinite, -1, 0, 1e9, 500};
    static const std::vector<std::string> kinds{"Mn", "Mx", "Ac"};
    for (std::int64_t i = 1 + swarm.random.below(2); i > 0; --i) {
        const std::string fan = "F" + std::to_string(swarm.anyFan());
        swarm.add(swarm.span(30s), {.key = fan + swarm.random.oneOf(kinds),
                                    .operation = Fault::Operation::read,
                                    .reading = swarm.random.oneOf(readings)});
    }
}

void makeFirmware(Swarm& swarm) {
    for (std::int64_t i = 1 + swarm.random.below(3); i > 0; --i) {
        const auto& fans = swarm.scenario.machine.fans;
        if (std::ranges::none_of(fans, [](const auto& fan) { return fan.modeKey.has_value(); }))
            return;
        const auto fan = static_cast<std::size_t>(swarm.anyFan());
        if (!fans[fan].modeKey) continue;
        swarm.scenario.firmware.push_back({.at = swarm.moment(),
                                           .key = *fans[fan].modeKey,
                                           .value = swarm.random.chance(60) ? 3.0 : 0.0});
    }
}

void makeHeat(Swarm& swarm) {
    Heater heater(swarm);
    if (!heater.hasSensor()) return;
    Random& random = swarm.random;
    const Duration from = swarm.moment();
    switch (random.below(6)) {
        case 0: heater.set(from, 96 + static_cast<double>(random.below(20))); break;
        case 1:
            for (int i = 0; i < 8; ++i) heater.set(from + i * 1s, i % 2 ? 94.9 : 95.1);
            break;
        case 2: heater.spoil(from, notANumber); break;
        case 3: heater.spoil(from, random.chance(50) ? -5 : 1e30); break;
        case 4: heater.set(from, 85 + static_cast<double>(random.below(9))); break;
        default: heater.hide(from);
    }
    if (random.chance(60)) heater.set(std::min(from + random.upTo(20s), troubleEnds), 50);
}

void makeHeldHeat(Swarm& swarm) {
    Heater heater(swarm);
    if (!heater.hasSensor() || swarm.fanCount() == 0) return;
    Random& random = swarm.random;
    // After most of the other commands, or none of this would last.
    const Duration begin = troubleEnds - 5s + random.upTo(10s);
    Call call{.at = begin, .client = anyClient(swarm), .method = Call::Method::applyConfig};
    const std::int64_t still = swarm.anyFan();
    for (std::size_t fan = 0; fan < swarm.fanCount(); ++fan) {
        const bool isStill = static_cast<std::int64_t>(fan) == still && random.chance(70);
        const double percent = isStill ? 0 : static_cast<double>(1 + random.below(100));
        call.plan.fans.push_back({.fanID = static_cast<std::int64_t>(fan),
                                  .mode = plan::FanControlModePlan::fixedPercent(percent)});
    }
    swarm.scenario.events.emplace_back(
        Heartbeats{.at = begin, .client = call.client, .every = 5s, .until = begin + 80s});
    swarm.scenario.events.emplace_back(std::move(call));
    heater.set(begin + 12s + random.upTo(15s), 96 + static_cast<double>(random.below(20)));
}

void makeHang(Swarm& swarm) {
    if (!swarm.scenario.machine.hasHIDSymbols) return;
    for (std::int64_t i = 1 + swarm.random.below(2); i > 0; --i) {
        const auto [from, until] = swarm.span(swarm.random.chance(50) ? 45s : 5s);
        if (until > from) swarm.scenario.hidHangs.push_back({.from = from, .until = until});
    }
}

void makeImpossibleNumbers(Swarm& swarm) {
    static const std::vector<std::int64_t> fans{10, -1, 7, 1'000'000, INT64_MIN, INT64_MAX};
    static const std::vector<double> counts{300, infinite, 3e9, notANumber, 0, 1, -1};
    for (std::int64_t i = 1 + swarm.random.below(3); i > 0; --i) {
        Call call = anyCall(swarm, swarm.moment(), anyClient(swarm));
        const bool isSpeed = swarm.random.chance(50);
        call.method = isSpeed ? Call::Method::setManualRPM : Call::Method::setPercent;
        call.fan = swarm.random.oneOf(fans);
        call.rpm = 3000;
        call.percent = 50;
        call.document.reset();
        swarm.scenario.events.emplace_back(std::move(call));
    }
    if (swarm.random.chance(40)) return;
    const auto when = swarm.span(20s);
    // A key's own type has no room for most of them.
    swarm.add(
        when,
        {.key = "FNum", .operation = Fault::Operation::information, .size = 4, .type = "flt "});
    swarm.add(when, {.key = "FNum",
                     .operation = Fault::Operation::read,
                     .reading = swarm.random.oneOf(counts)});
}

}  // namespace airflow::simulation
