#include "simulation/oracle/OracleGuard.h"

#include <algorithm>
#include <chrono>

namespace airflow::simulation {

namespace {

using namespace std::chrono_literals;

/// The SMC says other than it does, or does not say what a fan is.
bool isHidden(const Scenario& scenario) {
    return std::ranges::any_of(scenario.faults, [](const Fault& fault) {
        return fault.effect != Fault::Effect::natural || fault.operation != Fault::Operation::write;
    });
}

/// The watchdog reads the wall clock.
bool isSetBack(const Scenario& scenario) {
    return std::ranges::any_of(scenario.events, [](const Event& event) {
        const auto* jump = std::get_if<WallClockJump>(&event);
        return jump && jump->seconds < 0;
    });
}

}  // namespace

void GuardMonitor::called(Duration now, const Call&) {
    if (run.commands.size() > 10) lastFlood = now;
}

void GuardMonitor::guarded(Duration now) {
    const Scenario& scenario = run.scenario;
    // Commands by the dozen at once delay the hold loop's own reading of the sensors.
    const bool isFlooded = run.commands.size() > 10 || (lastFlood && now - *lastFlood < 20s);
    const bool hasReason =
        !scenario.hidHangs.empty() || isHidden(scenario) || isSetBack(scenario) || isFlooded;
    if (!hasReason)
        fail(Property::guardIsQuiet, now, "the guard gave fans back in an ordinary run");
}

}  // namespace airflow::simulation
