#include "simulation/machine/SimulatedMac.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "concurrency/Require.h"
#include "smc/FanNumbers.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;

constexpr concurrency::Seconds stepLength{0.1};
constexpr std::size_t mostFans{smc::mostFans};
/// The share of the way to its goal that a fan covers in a step: most of it in about five seconds.
constexpr double fanInertia = 0.04;
/// Between these temperatures the firmware's own control goes from lowest to highest speed, °C.
constexpr double firmwareStart = 55;
constexpr double firmwareFull = 95;
/// Sensors that follow the die; the others follow its heat sink.
constexpr const char* dieLabels[] = {"tdie", "CPU", "GPU"};

bool sitsOnDie(const std::string& name) {
    const auto occurs = [&name](const char* part) { return name.contains(part); };
    return std::ranges::any_of(dieLabels, occurs) || name.starts_with("TC") ||
           name.starts_with("TG");
}

double firmwareGoal(const FanDescription& fan, std::optional<double> hottest) {
    const double celsius = hottest.value_or(firmwareStart);
    const double share =
        std::clamp((celsius - firmwareStart) / (firmwareFull - firmwareStart), 0.0, 1.0);
    return fan.minRPM + share * (fan.maxRPM - fan.minRPM);
}

/// Where a motor goes that is told to turn so fast: no faster than it can, and never backwards. It
/// stands still when it is told something that is no number.
double reachable(const FanDescription& fan, double target) {
    return std::isnan(target) ? 0 : std::max(0.0, std::min(target, fan.maxRPM));
}

}  // namespace

SimulatedMac::SimulatedMac(MachineDescription machine, std::function<Duration()> machineClock,
                           Options options)
    : description(std::move(machine)),
      clock(std::move(machineClock)),
      controller(clock),
      hub(description.hid, options.jitter, options.seed),
      smcTemps(description.smc) {
    if (description.fans.size() > mostFans)
        concurrency::stopProcess("a simulated Mac has ten fans at most");
    for (const FanDescription& fan : description.fans) {
        fans.push_back({.description = fan,
                        .state = {.mode = static_cast<FanMode>(fan.mode),
                                  .speed = fan.currentRPM,
                                  .target = fan.currentRPM}});
    }
    hub.beforeSample = [this] { catchUp(); };
    controller.addNumber("FNum", "ui8 ", [this] { return static_cast<double>(fans.size()); });
    for (std::size_t i = 0; i < fans.size(); ++i) addFanKeys(i);
    controller.addNumber(
        "Ftst", "ui8 ", [this] { return forceTest() ? 1.0 : 0.0; },
        [this](double value) {
            if (value == 0)
                forceTestSince.reset();
            else if (!forceTestSince)
                forceTestSince = clock();
            return std::uint8_t{0};
        });
    for (std::size_t i = 0; i < smcTemps.size(); ++i) {
        controller.addNumber(smcTemps[i].first, "flt ", [this, i] {
            catchUp();
            return smcTemps[i].second;
        });
    }
}

void SimulatedMac::addFanKeys(std::size_t index) {
    const std::string prefix = "F" + std::to_string(index);
    controller.addNumber(prefix + "Ac", "flt ", [this, index] { return fan(index).speed; });
    controller.addNumber(prefix + "Mn", "flt ",
                         [this, index] { return fans[index].description.minRPM; });
    controller.addNumber(prefix + "Mx", "flt ",
                         [this, index] { return fans[index].description.maxRPM; });
    controller.addNumber(
        prefix + "Tg", "flt ", [this, index] { return fan(index).target; },
        [this, index](double rpm) {
            catchUp();
            fans[index].state.target = rpm;
            return std::uint8_t{0};
        });
    if (const auto& modeKey = fans[index].description.modeKey) {
        controller.addNumber(
            *modeKey, "ui8 ", [this, index] { return static_cast<double>(fan(index).mode); },
            [this, index](double value) {
                catchUp();
                return writeMode(fans[index], value);
            });
    }
}

SimulatedMac::FanState SimulatedMac::fan(std::size_t index) {
    catchUp();
    return fans.at(index).state;
}

std::optional<double> SimulatedMac::hottest() {
    catchUp();
    return hottestShown();
}

const Temperatures& SimulatedMac::smcTemperatures() {
    catchUp();
    return smcTemps;
}

std::optional<double> SimulatedMac::hottestShown() const {
    std::optional<double> hottest;
    const auto consider = [&hottest](double celsius) {
        if (!std::isnan(celsius)) hottest = std::max(hottest.value_or(celsius), celsius);
    };
    for (const auto& [key, celsius] : smcTemps) consider(celsius);
    if (hub.temperatures()) {
        for (const auto& [label, celsius] : *hub.temperatures()) consider(celsius);
    }
    return hottest;
}

void SimulatedMac::setMode(std::size_t fan, FanMode mode) {
    catchUp();
    changeMode(fans.at(fan), mode);
    fans.at(fan).forcedSince = clock();
}

void SimulatedMac::setHID(std::optional<Temperatures> temperatures) {
    catchUp();
    hub.setTemperatures(std::move(temperatures));
    if (thermal) showHeat();
}

void SimulatedMac::setHIDTemperature(const std::string& label, double celsius) {
    catchUp();
    hub.setTemperature(label, celsius);
}

void SimulatedMac::setSMCTemperature(const std::string& key, double celsius) {
    catchUp();
    const auto found = std::ranges::find(smcTemps, key, &Temperatures::value_type::first);
    if (found != smcTemps.end()) found->second = celsius;
}

void SimulatedMac::add(const HIDHang& hang) {
    hangs.push_back(hang);
    hub.beforeCall = [this] { this->hang(); };
}

void SimulatedMac::hang() const {
    if (!hidWaiter) return;
    const Duration now = clock();
    for (const HIDHang& each : hangs) {
        if (now >= each.from && now < each.until) hidWaiter(each.until);
    }
}

void SimulatedMac::follow(ThermalModel model) {
    catchUp();
    thermal = std::move(model);
    showHeat();
}

void SimulatedMac::standStill() {
    catchUp();
    thermal.reset();
}

void SimulatedMac::changeMode(Fan& fan, FanMode mode) {
    if (std::exchange(fan.state.mode, mode) == mode || !modeObserver) return;
    modeObserver(static_cast<std::size_t>(&fan - fans.data()), mode);
}

std::uint8_t SimulatedMac::writeMode(Fan& fan, double value) {
    if (value == 1) return force(fan);
    if (value != 0 && value != 3) return refused;
    changeMode(fan, static_cast<FanMode>(static_cast<std::uint8_t>(value)));
    fan.firstAsked.reset();
    return 0;
}

std::uint8_t SimulatedMac::force(Fan& fan) {
    const Duration now = clock();
    if (fan.state.mode == FanMode::forced) return 0;
    if (description.forceTestDelay &&
        (!forceTestSince || now - *forceTestSince < *description.forceTestDelay)) {
        return refused;
    }
    if (!fan.firstAsked) fan.firstAsked = now;
    if (now - *fan.firstAsked < description.busy) return busy;
    changeMode(fan, FanMode::forced);
    fan.forcedSince = now;
    return 0;
}

void SimulatedMac::catchUp() {
    const Duration now = clock();
    if (now - reached < stepLength) return;
    // Open-loop temperatures stand still here: whoever changes them lets the machine catch up
    // first.
    std::optional<double> hot = hottestShown();
    while (now - reached >= stepLength) {
        reached += stepLength;
        if (thermal) hot = moveHeat();
        moveFans(hot);
    }
    if (thermal) showHeat();
}

void SimulatedMac::moveFans(std::optional<double> hot) {
    for (Fan& fan : fans) {
        if (fan.state.mode == FanMode::forced && description.reclaimAfter &&
            reached - fan.forcedSince >= *description.reclaimAfter) {
            changeMode(fan, FanMode::reclaimed);
        }
        const double goal = fan.state.mode == FanMode::forced
                                ? reachable(fan.description, fan.state.target)
                                : firmwareGoal(fan.description, hot);
        fan.state.speed += (goal - fan.state.speed) * fanInertia;
    }
}

double SimulatedMac::moveHeat() {
    double airflow = 0;
    for (const Fan& fan : fans) {
        if (fan.description.maxRPM <= 0) continue;
        airflow += fan.state.speed / fan.description.maxRPM / static_cast<double>(fans.size());
    }
    thermal->step(reached, stepLength, std::clamp(airflow, 0.0, 1.0));
    return std::max(thermal->dieCelsius(), thermal->sinkCelsius());
}

void SimulatedMac::showHeat() {
    const auto show = [this](Temperatures& temperatures) {
        for (auto& [name, celsius] : temperatures) {
            celsius = sitsOnDie(name) ? thermal->dieCelsius() : thermal->sinkCelsius();
        }
    };
    show(smcTemps);
    if (hub.temperatures()) show(*hub.temperatures());
}

}  // namespace airflow::simulation
