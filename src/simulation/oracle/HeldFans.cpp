#include "simulation/oracle/HeldFans.h"

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

void insertFan(std::set<std::size_t>& fans, std::int64_t fan) {
    if (fan >= 0) fans.insert(static_cast<std::size_t>(fan));
}

std::set<std::size_t> fansAtFullBlast(const Call& call, const std::set<std::size_t>& fixed) {
    if (call.method == Method::fullBlast) return fixed;
    std::set<std::size_t> fans;
    if (call.method == Method::setPercent && call.percent >= 100) insertFan(fans, call.fan);
    for (const plan::FanPlan& fan : call.plan.fans) {
        const auto* const percent = std::get_if<plan::FixedPercent>(&fan.mode.mode);
        if (call.method == Method::applyConfig && percent && percent->percent >= 100) {
            insertFan(fans, fan.fanID);
        }
    }
    return fans;
}

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
    const auto isPlausible = [](const auto& reading) {
        const std::optional<double> celsius = reading.second;
        return celsius && *celsius > -40 && *celsius < 150;
    };
    const auto isRead = [&](const TemperatureChange& change) {
        return !change.hidesHID && std::ranges::all_of(change.hid, isPlausible) &&
               std::ranges::all_of(change.smc, isPlausible);
    };
    return readsEverySensor(scenario) && std::ranges::all_of(scenario.temperatures, isRead);
}

bool readsEverything(const Scenario& scenario) {
    return readsEverySensor(scenario) && scenario.temperatures.empty();
}

std::set<std::size_t> managedFans(const Call& call, std::size_t fanCount) {
    std::set<std::size_t> fans;
    const bool isPlan = call.method == Method::applyConfig;
    if (call.method == Method::fullBlast || (isPlan && !call.plan.rules.empty())) {
        for (std::size_t fan = 0; fan < fanCount; ++fan) fans.insert(fan);
    } else if (!isPlan) {
        insertFan(fans, call.fan);
    }
    for (const plan::FanPlan& fan : call.plan.fans) {
        if (isPlan && !fan.mode.isAutomatic()) insertFan(fans, fan.fanID);
    }
    return fans;
}

std::set<std::size_t> fixedFans(const Call& call, std::size_t fanCount) {
    if (call.method == Method::fullBlast) return managedFans(call, fanCount);
    std::set<std::size_t> fans;
    if (call.method == Method::setPercent && call.percent > 0) insertFan(fans, call.fan);
    if (call.method == Method::setManualRPM && call.rpm > 0) insertFan(fans, call.fan);
    if (call.method != Method::applyConfig || !call.plan.rules.empty()) return fans;
    for (const plan::FanPlan& fan : call.plan.fans) {
        if (std::visit(IsFixedAboveZero{}, fan.mode.mode)) insertFan(fans, fan.fanID);
    }
    return fans;
}

void HeldFans::command(const Call& call, bool isAlone) {
    const bool isPlan = call.method == Method::applyConfig;
    if (isPlan) {
        held.clear();
        full.clear();
        isCertain = call.plan.rules.empty();
    }
    for (const std::size_t fan : managedFans(call, fanCount)) {
        held.erase(fan);
        full.erase(fan);
    }
    const auto fixed = fixedFans(call, fanCount);
    held.insert(fixed.begin(), fixed.end());
    const auto atFullBlast = fansAtFullBlast(call, fixed);
    full.insert(atFullBlast.begin(), atFullBlast.end());
    if (!isAlone) isCertain = false;
}

void HeldFans::release() {
    held.clear();
    full.clear();
    isCertain = true;
}

bool HeldFans::isAtFullBlast(std::size_t fan) const {
    return fans().contains(fan) && full.contains(fan);
}

const std::set<std::size_t>& HeldFans::fans() const {
    static const std::set<std::size_t> none;
    return isCertain ? held : none;
}

}  // namespace airflow::simulation
