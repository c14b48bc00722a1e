#include "simulation/HeldFans.h"

#include <algorithm>
#include <optional>
#include <variant>

namespace airflow::simulation {

namespace {

using Method = Call::Method;

struct IsFixedAboveZero {
    bool operator()(const plan::FixedRPM& fixed) const { return fixed.rpm > 0; }
    bool operator()(const plan::FixedPercent& fixed) const { return fixed.percent > 0; }
    bool operator()(const plan::FanCurve&) const { return false; }
    bool operator()(const plan::Automatic&) const { return false; }
};

/// Nothing is wrong with a reading but what the temperatures themselves say.
bool readsEverySensor(const Scenario& scenario) {
    const auto isOfWrites = [](const Fault& fault) {
        return fault.key != "*" && fault.operation == Fault::Operation::write;
    };
    // Without jitter all samples of a sensor are equal, and it counts as broken.
    return scenario.jitter > 0 && std::ranges::all_of(scenario.faults, isOfWrites);
}

}  // namespace

bool reachesCeiling(const Scenario& scenario) {
    const auto isHot = [](const auto& reading) {
        return std::optional<double>(reading.second).value_or(0) >= 94.9;  // and a little jitter
    };
    if (scenario.thermal) return true;
    if (std::ranges::any_of(scenario.machine.hid.value_or(Temperatures{}), isHot)) return true;
    if (std::ranges::any_of(scenario.machine.smc, isHot)) return true;
    return std::ranges::any_of(scenario.temperatures, [&](const TemperatureChange& change) {
        return std::ranges::any_of(change.hid, isHot) || std::ranges::any_of(change.smc, isHot);
    });
}

bool showsHeat(const Scenario& scenario) {
    const auto isRead = [](const TemperatureChange& change) {
        return !change.hidesHID && std::ranges::all_of(change.hid, [](const auto& reading) {
            return reading.second && *reading.second > -40 && *reading.second < 150;
        });
    };
    // HID temperatures that cannot be asked for do not heat what is read instead.
    const bool hasHID = scenario.machine.hasHIDSymbols || scenario.temperatures.empty();
    return hasHID && readsEverySensor(scenario) &&
           std::ranges::all_of(scenario.temperatures, isRead);
}

bool readsEverything(const Scenario& scenario) {
    return readsEverySensor(scenario) && scenario.temperatures.empty();
}

bool managesAny(const plan::FanControlPlan& plan) {
    const auto isManaged = [](const plan::FanPlan& fan) { return !fan.mode.isAutomatic(); };
    return !plan.rules.empty() || std::ranges::any_of(plan.fans, isManaged);
}

void HeldFans::replace(const plan::FanControlPlan& plan) {
    held.clear();
    isCertain = plan.rules.empty();
    for (const plan::FanPlan& fan : plan.fans) {
        if (fan.fanID < 0 || !std::visit(IsFixedAboveZero{}, fan.mode.mode)) continue;
        held.insert(static_cast<std::size_t>(fan.fanID));
    }
}

void HeldFans::command(const Call& call, bool isAlone) {
    const auto fan = static_cast<std::size_t>(call.fan);
    const bool isAboveZero = call.method == Method::setPercent ? call.percent > 0 : call.rpm > 0;
    if (call.method == Method::applyConfig) {
        replace(call.plan);
    } else if (call.method == Method::fullBlast) {
        for (std::size_t each = 0; each < fanCount; ++each) held.insert(each);
    } else if (isAboveZero) {
        held.insert(fan);
    } else {
        held.erase(fan);
    }
    if (!isAlone) isCertain = false;
}

void HeldFans::release() {
    held.clear();
    isCertain = true;
}

const std::set<std::size_t>& HeldFans::fans() const {
    static const std::set<std::size_t> none;
    return isCertain ? held : none;
}

}  // namespace airflow::simulation
