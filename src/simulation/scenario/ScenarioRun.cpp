// The daemon's lives and what happens to the machine. ScenarioRunClients.cpp holds the clients.
#include "simulation/scenario/ScenarioRun.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "simulation/runtime/Random.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using namespace std::chrono_literals;

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

/// Another schedule for each life; in turns stays in turns.
std::uint64_t seedOfLife(std::uint64_t seed, std::uint64_t life) {
    return seed == 0 ? 0 : seed + life * Random::step;
}

/// More of them is a daemon that cannot start, and a scenario that does not wait between two tries.
constexpr int mostStartsInAMoment = 100;

/// Of what is done in one moment: what the machine does comes before a look at it, and what clients
/// do after that. An interruption is last, and what comes before it has not run yet then.
enum Order { machine, sample, event, interruption, atTheEnd };

Order orderOf(const Event& event) {
    const auto* process = std::get_if<ProcessEvent>(&event);
    return process && process->afterSteps > 0 ? Order::interruption : Order::event;
}

}  // namespace

ScenarioRun::ScenarioRun(const Scenario& played, ScenarioObserver& told, std::uint64_t scheduleSeed)
    : ScenarioRun(played, told, scheduleSeed, {}) {}

ScenarioRun::ScenarioRun(const Scenario& played, ScenarioObserver& told,
                         ChosenSchedule chosenSchedule)
    : ScenarioRun(played, told, 0, std::move(chosenSchedule)) {}

ScenarioRun::ScenarioRun(const Scenario& played, ScenarioObserver& told, std::uint64_t scheduleSeed,
                         ChosenSchedule chosenSchedule)
    : scenario(played),
      observer(told),
      seed(scheduleSeed),
      chosen(std::move(chosenSchedule)),
      mac(played.machine, [this] { return now(); }, {.jitter = played.jitter, .seed = seed}),
      lastHID(played.machine.hid.value_or(Temperatures{})) {
    connectMachine();
}

ScenarioRun::~ScenarioRun() {
    clients.clear();
    daemon.reset();
}

void ScenarioRun::connectMachine() {
    for (const Fault& fault : scenario.faults) mac.smc().add(fault);
    for (const HIDHang& hang : scenario.hidHangs) mac.add(hang);
    if (scenario.thermal) {
        mac.follow(ThermalModel(scenario.thermal->load, scenario.thermal->ambient));
    }
    mac.smc().observer = [this](const SMCAccess& access) { observer.access(access); };
    mac.modeObserver = [this](std::size_t fan, FanMode mode) {
        observer.modeChanged(now(), fan, mode);
    };
    standardError.listener = [this](std::string_view line) { observer.logged(now(), line); };
}

Duration ScenarioRun::now() const {
    return daemon ? daemon->runtime.now().time_since_epoch() : machineTime;
}

std::uint64_t ScenarioRun::fingerprint() const {
    Fingerprint all = endedLives;
    all.mix(daemon ? daemon->runtime.fingerprint() : 0);
    return all.value();
}

void ScenarioRun::play(Duration length) {
    observer.second(Duration::zero(), mac);  // before anything can change
    scheduleAll();
    startDaemon();
    schedule(length, atTheEnd, [] {});
    while (actions.begin()->first.first <= length) {
        const auto [time, order] = actions.begin()->first;
        const bool isInTheMiddle = !chosen.choose && order == interruption && time <= now();
        // A process that ends on the way may be started again before what comes next.
        if (!isInTheMiddle && !runTo(time)) continue;
        if (order == atTheEnd) break;
        const auto next = actions.extract(actions.begin());
        next.mapped()();
    }
}

void ScenarioRun::schedule(Duration at, int order, Action action) {
    actions.emplace(std::pair(at, order), std::move(action));
}

void ScenarioRun::scheduleAll() {
    for (const TemperatureChange& each : scenario.temperatures) {
        schedule(each.at, machine, [this, &each] { apply(each); });
    }
    for (const FirmwareChange& each : scenario.firmware) {
        schedule(each.at, machine, [this, &each] { mac.smc().poke(each.key, each.value); });
    }
    for (const Event& event : scenario.events) {
        const Duration at = std::visit([](const auto& each) { return each.at; }, event);
        schedule(at, orderOf(event), [this, &event] { perform(event); });
    }
    watchSeconds(1s);
}

void ScenarioRun::watchSeconds(Duration at) {
    schedule(at, sample, [this, at] {
        observer.second(at, mac);
        watchSeconds(at + 1s);
    });
}

void ScenarioRun::perform(const Event& event) {
    if (const auto* call = std::get_if<Call>(&event)) send(*call);
    if (const auto* beats = std::get_if<Heartbeats>(&event)) beat(*beats, beats->at);
    if (const auto* process = std::get_if<ProcessEvent>(&event)) deliver(*process);
    if (const auto* client = std::get_if<ConnectionChange>(&event)) {
        if (client->kind == ConnectionChange::Kind::disconnect)
            disconnect(client->client);
        else if (daemon)
            connect(client->client, client->isUntrusted);
    }
    if (const auto* jump = std::get_if<WallClockJump>(&event)) {
        dateOffset += concurrency::Seconds(jump->seconds);
        observer.clockJumped(now(), jump->seconds);
        if (daemon) daemon->runtime.jumpDate(concurrency::Seconds(jump->seconds));
    }
}

void ScenarioRun::beat(const Heartbeats& beats, Duration at) {
    send({.at = at, .client = beats.client, .method = Call::Method::heartbeat});
    const Duration next = at + beats.every;
    if (next <= beats.until) schedule(next, event, [this, &beats, next] { beat(beats, next); });
}

void ScenarioRun::apply(const TemperatureChange& change) {
    for (const auto& [label, celsius] : change.hid) update(lastHID, label, celsius);
    if (change.hidesHID)
        mac.setHID(std::nullopt);
    else if (!change.hid.empty())
        mac.setHID(lastHID);
    for (const auto& [key, celsius] : change.smc) mac.setSMCTemperature(key, celsius);
}

/// False when the process has ended on the way, and time stands still there.
bool ScenarioRun::runTo(Duration time) {
    if (daemon) {
        const Duration span = std::max(time - now(), Duration::zero());
        if (!chosen.choose)
            daemon->runtime.advance(span);
        else if (span > Duration::zero())
            daemon->runtime.approach(span);
        noteEnd();
        if (!daemon) return false;
    }
    machineTime = std::max(machineTime, time);
    return true;
}

SimulatedRuntime::Chooser ScenarioRun::chooser() {
    if (!chosen.choose) return {};
    return [this](std::size_t candidates) {
        const bool isUpToIt = now() >= chosen.from && now() < chosen.until;
        return isUpToIt ? chosen.choose(candidates) : 0;
    };
}

void ScenarioRun::startDaemon() {
    if (daemon) return;
    startsInThisMoment = machineTime == lastStart ? startsInThisMoment + 1 : 1;
    lastStart = machineTime;
    if (startsInThisMoment > mostStartsInAMoment) {
        throw Stuck("the daemon ends as soon as it is started, and is started again at once");
    }
    observer.started(machineTime);
    daemon = std::make_unique<SimulatedDaemon>(
        mac, standardError,
        SimulatedDaemon::Options{
            .seed = seedOfLife(seed, lives++),
            .chooser = chooser(),
            .time = machineTime,
            .dateOffset = dateOffset,
            .effectiveUserID = scenario.effectiveUserID,
            .published =
                [this](const control::ControlState& state) { observer.published(now(), state); },
            .guarded = [this] { observer.guarded(now()); },
            .snapshotTaken =
                [this](const sensors::SensorSnapshot& snapshot) {
                    observer.looked(now(), snapshot);
                },
            .evaluating =
                [this](const control::LocalFanController::Evaluation& evaluation) {
                    observer.evaluating(now(), evaluation);
                },
            .metBug = [this](std::string_view violation) { observer.metBug(now(), violation); }});
    daemon->listener.resumed = [this] { observer.listening(now()); };
    daemon->process.exitBegan = [this] { observer.exitBegan(now()); };
    daemon->start();
}

/// When the process has ended, everything that was its own goes.
void ScenarioRun::noteEnd() {
    if (!daemon || !daemon->process.end()) return;
    const ProcessEnd end = *daemon->process.end();
    endedLives.mix(daemon->runtime.fingerprint());
    machineTime = now();
    for (auto& [name, client] : clients) client.connection.reset();
    daemon.reset();
    observer.ended(end);
    if (!scenario.restartAfter) return;
    schedule(std::max(end.time + *scenario.restartAfter, machineTime), event,
             [this] { startDaemon(); });
}

void ScenarioRun::deliver(const ProcessEvent& event) {
    using Kind = ProcessEvent::Kind;
    if (event.kind == Kind::start) {
        startDaemon();
    } else if (daemon) {
        afterSteps(event.afterSteps, [this, kind = event.kind] {
            if (daemon->process.end()) return;
            if (kind == Kind::kill) return daemon->process.kill();
            if (kind == Kind::stop) return daemon->stop("A bug: the scenario asked for one.");
            const auto signal =
                kind == Kind::terminate ? daemon::Signal::terminate : daemon::Signal::interrupt;
            observer.signalled(now(), signal);
            daemon->process.deliver(signal);
        });
    }
}

void ScenarioRun::afterSteps(std::uint64_t steps, Action action) {
    if (steps > 0)
        daemon->runtime.afterJobs(steps, std::move(action));
    else
        action();
    noteEnd();
}

}  // namespace airflow::simulation
