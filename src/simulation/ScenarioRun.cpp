#include "simulation/ScenarioRun.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using concurrency::Instant;
using namespace std::chrono_literals;

constexpr const char* onlyClient = "app";
/// Between the answer to shutdownForUpgrade and the end, so that the answer can leave.
constexpr auto farewell = 200ms;

void update(Temperatures& temperatures, const std::string& name, std::optional<double> celsius) {
    const auto found = std::ranges::find(temperatures, name, &Temperatures::value_type::first);
    if (!celsius) {
        if (found != temperatures.end()) temperatures.erase(found);
    } else if (found == temperatures.end()) {
        temperatures.emplace_back(name, *celsius);
    } else {
        found->second = *celsius;
    }
}

}  // namespace

ScenarioRun::ScenarioRun(const Scenario& played, ScenarioObserver& told, std::uint64_t seed)
    : scenario(played),
      observer(told),
      system(played.machine,
             {.seed = seed, .jitter = played.jitter, .effectiveUserID = played.effectiveUserID}),
      lastHID(played.machine.hid.value_or(Temperatures{})) {
    for (const Fault& fault : scenario.faults) system.mac.smc().add(fault);
    if (scenario.thermal) {
        system.mac.follow(ThermalModel(scenario.thermal->load, scenario.thermal->ambient));
    }
    system.mac.smc().observer = [this](const SMCAccess& access) { observer.access(access); };
    system.mac.modeObserver = [this](std::size_t fan, FanMode mode) {
        observer.modeChanged(system.elapsed(), fan, mode);
    };
    system.standardError.listener = [this](std::string_view line) {
        observer.logged(system.elapsed(), line);
    };
}

ScenarioRun::~ScenarioRun() {
    system.runtime.abandon();
}

void ScenarioRun::play(Duration length) {
    observer.second(Duration::zero(), system.mac);  // before anything can change
    system.runtime.detach("states", watchStates(*this));
    system.runtime.detach("seconds", watchSeconds(*this));
    system.runtime.run(recover(*this));
    system.runtime.detach("temperatures", changeTemperatures(*this));
    system.runtime.detach("firmware", changeFirmware(*this));
    for (const Event& event : scenario.events) {
        system.runtime.detach("event", performEvent(*this, event));
    }
    system.runtime.advance(std::max(length - system.elapsed(), Duration::zero()));
}

concurrency::Task<void> ScenarioRun::sleepUntil(Duration time) {
    (void)co_await system.runtime.sleepUntil(Instant(time));  // nobody cancels it
}

concurrency::Task<void> ScenarioRun::watchStates(ScenarioRun& run) {
    for (;;) {
        const auto state = co_await run.system.controller->stateStream().next();
        if (!state) co_return;
        run.observer.published(run.system.elapsed(), *state);
    }
}

concurrency::Task<void> ScenarioRun::watchSeconds(ScenarioRun& run) {
    for (Duration time = 1s;; time += 1s) {
        co_await run.sleepUntil(time);
        run.observer.second(time, run.system.mac);
    }
}

concurrency::Task<void> ScenarioRun::recover(ScenarioRun& run) {
    const auto failure = co_await run.system.controller->restoreAllFansToAutomatic();
    if (failure) {
        run.observer.logged(
            run.system.elapsed(),
            "[com.brisquell.helper] startup Auto recovery failed: " + *failure + "\n");
        run.hasEnded = true;
    }
}

concurrency::Task<void> ScenarioRun::changeTemperatures(ScenarioRun& run) {
    for (const TemperatureChange& change : run.scenario.temperatures) {
        co_await run.sleepUntil(change.at);
        run.apply(change);
    }
}

void ScenarioRun::apply(const TemperatureChange& change) {
    for (const auto& [label, celsius] : change.hid) update(lastHID, label, celsius);
    if (change.hidesHID)
        system.mac.setHID(std::nullopt);
    else if (!change.hid.empty())
        system.mac.setHID(lastHID);
    for (const auto& [key, celsius] : change.smc) system.mac.setSMCTemperature(key, celsius);
}

concurrency::Task<void> ScenarioRun::changeFirmware(ScenarioRun& run) {
    for (const FirmwareChange& change : run.scenario.firmware) {
        co_await run.sleepUntil(change.at);
        run.system.mac.smc().poke(change.key, change.value);
    }
}

concurrency::Task<void> ScenarioRun::performEvent(ScenarioRun& run, Event event) {
    if (const auto* call = std::get_if<Call>(&event)) {
        co_await run.sleepUntil(call->at);
        co_await perform(run, *call);
    } else if (const auto* beats = std::get_if<Heartbeats>(&event)) {
        co_await beat(run, *beats);
    } else if (const auto* jump = std::get_if<WallClockJump>(&event)) {
        co_await run.sleepUntil(jump->at);
        run.system.runtime.jumpDate(concurrency::Seconds(jump->seconds));
    }
}

concurrency::Task<void> ScenarioRun::beat(ScenarioRun& run, Heartbeats beats) {
    for (Duration time = beats.at; time <= beats.until; time += beats.every) {
        co_await run.sleepUntil(time);
        if (run.hasEnded) co_return;
        co_await run.system.controller->heartbeat();
    }
}

concurrency::Task<void> ScenarioRun::perform(ScenarioRun& run, Call call) {
    if (run.hasEnded) co_return;
    run.observer.called(run.system.elapsed(), onlyClient, call);
    Reply reply = co_await answer(run, call);
    reply.client = onlyClient;
    reply.method = call.method;
    if (run.hasEnded) co_return;
    if (call.method != Call::Method::heartbeat) {
        run.observer.replied(run.system.elapsed(), reply);
    }
    if (call.method != Call::Method::shutdownForUpgrade) co_return;
    (void)co_await run.system.runtime.sleepFor(farewell);  // nobody cancels it
    run.hasEnded = true;
}

concurrency::Task<Reply> ScenarioRun::answer(ScenarioRun& run, Call call) {
    control::LocalFanController& controller = *run.system.controller;
    Reply reply;
    switch (call.method) {
        case Call::Method::setManualRPM:
            reply.result = co_await controller.setManual(call.fan, call.rpm);
            break;
        case Call::Method::setPercent:
            reply.result = co_await controller.setPercent(call.fan, call.percent);
            break;
        case Call::Method::fullBlast: reply.result = co_await controller.fullBlast(); break;
        case Call::Method::automatic: reply.result = co_await controller.automatic(); break;
        case Call::Method::applyConfig:
            reply.result = co_await controller.applyPlan(call.plan);
            break;
        case Call::Method::restoreAuto:
        case Call::Method::shutdownForUpgrade:
            (void)co_await controller.restoreAuto();  // acknowledged whatever came of it
            break;
        case Call::Method::heartbeat: co_await controller.heartbeat(); break;
        case Call::Method::readState: reply.state = co_await controller.currentState(); break;
        case Call::Method::helperVersion: break;
    }
    co_return reply;
}

}  // namespace airflow::simulation
