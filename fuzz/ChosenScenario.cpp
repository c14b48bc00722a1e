#include "ChosenScenario.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace airflow::fuzz {

namespace {

using namespace simulation;
using namespace std::chrono_literals;
using concurrency::Duration;

constexpr Duration troubleEnds = 20s;
constexpr Duration calm = 60s;

class Chooser {
public:
    explicit Chooser(Input& chosen) : input(chosen) {}

    Scenario make() {
        chooseMachine();
        for (int parts = 0; parts < 16 && !input.isEmpty(); ++parts) addPart();
        scenario.sortChanges();
        scenario.duration = troubleEnds + calm;
        return std::move(scenario);
    }

private:
    /// Most things happen on a grid of 0.5 s, so that they meet.
    Duration moment() { return input.below(41) * Duration(500ms); }
    Duration shortTime() { return (1 + input.below(50)) * Duration(100ms); }
    std::string client() {
        return input.oneOf(std::array<const char*, 4>{onlyClient, onlyClient, "monitor", "script"});
    }
    std::int64_t fan() { return static_cast<std::int64_t>(input.below(2)); }
    std::string modeKey() {
        const auto index = static_cast<std::size_t>(fan());
        if (index >= scenario.machine.fans.size()) return upperModeKey(index);
        return scenario.machine.fans[index].modeKey.value_or(upperModeKey(index));
    }

    void chooseMachine() {
        constexpr std::array<const char*, 12> names{
            "laptop",      "laptop",     "unlock",      "busy",   "lower-case",     "no-mode-key",
            "left-forced", "reclaiming", "left-forced", "no-hid", "no-hid-symbols", "fanless"};
        scenario.machine = *machinePreset(input.oneOf(names));
        const std::uint64_t more = input.below(16);
        if (more == 1) scenario.jitter = 0;
        if (more == 2) scenario.effectiveUserID = 501;
        if (more > 4) scenario.restartAfter = shortTime();
    }

    void addPart() {
        switch (input.below(12)) {
            case 0: addSignal(); break;
            case 1: addKill(); break;
            case 2: addConnectionChange(); break;
            case 3: addHeartbeats(); break;
            case 4:
            case 5: addFault(writeFault()); break;
            case 6: addFault(readFault()); break;
            case 7: addFirmwareChange(); break;
            case 8: addTemperature(); break;
            case 9: addClockJump(); break;
            default: addCall();
        }
    }

    void addCall() {
        Call call{.at = moment(), .client = client()};
        call.method = static_cast<Call::Method>(input.below(10));
        call.fan = fan();
        call.rpm = static_cast<std::int64_t>(input.below(80)) * 100 - 500;
        call.percent = static_cast<double>(input.below(130)) - 10;
        if (call.method == Call::Method::applyConfig) choosePlan(call);
        scenario.events.emplace_back(std::move(call));
    }

    void choosePlan(Call& call) {
        const std::uint64_t kind = input.below(8);
        if (kind == 7) call.document = R"({"fans":7})";
        for (std::size_t index = 0; index < scenario.machine.fans.size(); ++index) {
            call.plan.fans.push_back({.fanID = static_cast<std::int64_t>(index), .mode = mode()});
        }
        if (kind == 6) call.plan.rules.push_back(hotRule());
    }
    plan::FanControlModePlan mode() {
        switch (input.below(4)) {
            case 0: return plan::FanControlModePlan::automatic();
            case 1:
                return plan::FanControlModePlan::fixedPercent(
                    static_cast<double>(input.below(101)));
            case 2:
                return plan::FanControlModePlan::fixedRPM(static_cast<double>(input.below(8000)));
            default:
                return plan::FanControlModePlan::curve(
                    {.sourceSensorID = {},
                     .points = {{.id = {}, .celsius = 40, .percent = 0},
                                {.id = {}, .celsius = 90, .percent = 100}}});
        }
    }
    plan::FanRule hotRule() {
        return {.id = {},
                .name = "hot",
                .sensorID = {},
                .thresholdCelsius = 60,
                .releaseBelowCelsius = 55,
                .targetPercent = 100,
                .fanTarget = plan::RuleFanTarget::all(),
                .dwellSeconds = static_cast<double>(input.below(4)),
                .enabled = true};
    }

    void addHeartbeats() {
        const Duration from = moment();
        scenario.events.emplace_back(Heartbeats{.at = from,
                                                .client = client(),
                                                .every = 1s + shortTime() * 3,
                                                .until = from + shortTime() * 8});
    }
    void addConnectionChange() {
        ConnectionChange change{.at = moment(), .client = client()};
        const std::uint64_t kind = input.below(8);
        if (kind < 6) change.kind = ConnectionChange::Kind::disconnect;
        if (kind == 7) {
            change.client = "stranger";
            change.isUntrusted = true;
        }
        scenario.events.emplace_back(change);
    }
    void addSignal() {
        const bool isTerminate = input.below(2) == 0;
        scenario.events.emplace_back(ProcessEvent{
            .at = moment(),
            .kind = isTerminate ? ProcessEvent::Kind::terminate : ProcessEvent::Kind::interrupt,
            .afterSteps = input.below(200)});
    }
    void addKill() {
        const Duration at = moment();
        scenario.events.emplace_back(ProcessEvent{
            .at = at, .kind = ProcessEvent::Kind::kill, .afterSteps = input.below(200)});
        scenario.events.emplace_back(
            ProcessEvent{.at = at + shortTime(), .kind = ProcessEvent::Kind::start});
    }
    void addClockJump() {
        constexpr std::array<double, 6> jumps{-3600, -20, -5, 5, 20, 3600};
        scenario.events.emplace_back(WallClockJump{.at = moment(), .seconds = input.oneOf(jumps)});
    }

    void addFault(Fault fault) {
        fault.from = moment();
        fault.until = std::min(fault.from + shortTime() * 4, troubleEnds);
        scenario.faults.push_back(std::move(fault));
    }
    /// Of a mode key, mostly: refused, lost, slow, or not what it says.
    Fault writeFault() {
        constexpr std::array<std::uint8_t, 5> results{0x82, 0x86, 0x87, 0x01, 0xFF};
        constexpr std::array effects{Fault::Effect::natural, Fault::Effect::ignored,
                                     Fault::Effect::applied};
        constexpr std::int32_t ioError = -536870212;
        Fault fault{.key = modeKey()};
        const std::uint64_t value = input.below(4);
        if (value < 2) fault.value = static_cast<double>(value);
        switch (input.below(7)) {
            case 0: fault.kernelReturn = ioError; break;
            case 1: fault.effect = Fault::Effect::ignored; break;
            case 2:
                fault.result = 0x87;
                fault.effect = Fault::Effect::applied;
                break;
            case 3: fault.latency = shortTime(); break;
            case 4:
                fault.key = input.below(2) == 0 ? "Ftst" : "F0Tg";
                fault.result = 0x86;
                fault.effect = input.oneOf(effects);
                break;
            default: fault.result = input.oneOf(results);
        }
        return fault;
    }
    Fault readFault() {
        constexpr std::array<const char*, 8> keys{"F0Mn", "F0Mx", "F0Ac", "F1Mn",
                                                  "F1Mx", "FNum", "F0Md", "F1Md"};
        Fault fault{.key = input.oneOf(keys), .operation = Fault::Operation::read};
        switch (input.below(4)) {
            case 0: fault.result = 0x84; break;
            case 1: fault.latency = shortTime() / 5; break;
            case 2: fault.reading = wrongReading(fault.key); break;
            default: fault.operation = Fault::Operation::information; fault.result = 0x84;
        }
        return fault;
    }
    double wrongReading(std::string_view key) {
        constexpr double none = std::numeric_limits<double>::quiet_NaN();
        constexpr std::array<double, 6> numbers{
            none, std::numeric_limits<double>::infinity(), -1, 0, 1e9, 500};
        constexpr std::array<double, 6> counts{none, -1, 0, 1, 3, 300};
        constexpr std::array<double, 3> modes{0, 1, 3};
        if (key == "FNum") return input.oneOf(counts);
        return key.ends_with("Md") ? input.oneOf(modes) : input.oneOf(numbers);
    }

    void addFirmwareChange() {
        if (scenario.machine.fans.empty()) return;
        scenario.firmware.push_back(
            {.at = moment(), .key = modeKey(), .value = input.below(2) == 0 ? 3.0 : 0.0});
    }
    void addTemperature() {
        if (!scenario.machine.hid || scenario.machine.hid->empty()) return;
        constexpr std::array<double, 8> values{
            50, 94.9, 95.1, 110, -5, 1e30, std::numeric_limits<double>::quiet_NaN(), 70};
        TemperatureChange change{.at = moment()};
        change.hidesHID = input.below(6) == 5;
        if (!change.hidesHID) {
            change.hid = {{scenario.machine.hid->front().first, input.oneOf(values)}};
        }
        scenario.temperatures.push_back(std::move(change));
    }

    Input& input;
    Scenario scenario;
};

}  // namespace

Scenario chosenScenario(Input& input) {
    return Chooser(input).make();
}

}  // namespace airflow::fuzz
