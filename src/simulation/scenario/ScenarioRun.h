// ScenarioRun: plays a scenario through the whole daemon in virtual time, and tells what happens.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "simulation/daemon/SimulatedDaemon.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/runtime/Fingerprint.h"
#include "simulation/scenario/Scenario.h"
#include "simulation/scenario/ScenarioObserver.h"

namespace airflow::simulation {

/// An order of the steps of a run that is chosen by whoever makes the run.
struct ChosenSchedule {
    SimulatedRuntime::Chooser choose{};
    /// Since the start of the run. Before and from the end on, executors take turns.
    concurrency::Duration from{};
    concurrency::Duration until = concurrency::Duration::max();
};

/// The machine outlives the daemon, and so do the clients; what connects them does not.
class ScenarioRun {
public:
    /// Both outlive the run.
    ScenarioRun(const Scenario& scenario, ScenarioObserver& observer, std::uint64_t seed);
    /// With a chosen schedule, everything that happens at the same time happens before a step of
    /// the daemon at that time, its timers included: the schedule decides what comes of it first.
    ScenarioRun(const Scenario& scenario, ScenarioObserver& observer, ChosenSchedule schedule);
    ~ScenarioRun();
    ScenarioRun(const ScenarioRun&) = delete;
    ScenarioRun& operator=(const ScenarioRun&) = delete;

    /// Starts the daemon, and then does everything that the scenario holds, for `length` of virtual
    /// time. Called once. Throws Stuck when the daemon spins, or ends at every start.
    void play(concurrency::Duration length);

    /// Depends on every step of the run: equal for equal runs.
    [[nodiscard]] std::uint64_t fingerprint() const;

private:
    struct Client {
        std::shared_ptr<SimulatedConnection> connection;  ///< none while it is not connected
        std::int64_t openings = 0;
        bool isUntrusted = false;  ///< as it last connected
    };
    using Action = std::function<void()>;

    ScenarioRun(const Scenario& scenario, ScenarioObserver& observer, std::uint64_t seed,
                ChosenSchedule schedule);
    void connectMachine();
    void schedule(concurrency::Duration at, int order, Action action);
    void scheduleAll();
    void watchSeconds(concurrency::Duration at);
    void perform(const Event& event);
    void beat(const Heartbeats& beats, concurrency::Duration at);
    void apply(const TemperatureChange& change);

    [[nodiscard]] concurrency::Duration now() const;
    bool runTo(concurrency::Duration time);
    [[nodiscard]] SimulatedRuntime::Chooser chooser();
    void startDaemon();
    void noteEnd();
    void deliver(const ProcessEvent& event);
    void afterSteps(std::uint64_t steps, Action action);

    SimulatedConnection& connect(const std::string& name, bool isUntrusted);
    void disconnect(const std::string& name);
    void send(const Call& call);
    [[nodiscard]] SimulatedConnection::Message message(const Call& call);
    void tell(const Call& call, std::int64_t opening, Reply reply);

    const Scenario& scenario;
    ScenarioObserver& observer;
    std::uint64_t seed;
    ChosenSchedule chosen;  ///< its chooser is empty when the seed decides
    RecordedLines standardError;
    SimulatedMac mac;
    std::unique_ptr<SimulatedDaemon> daemon;  ///< none while no process runs
    concurrency::Duration machineTime{};      ///< while no process runs
    concurrency::Seconds dateOffset{};
    std::uint64_t calls = 0;
    std::uint64_t lives = 0;
    std::optional<concurrency::Duration> lastStart;
    int startsInThisMoment = 0;
    Fingerprint endedLives;
    std::map<std::string, Client> clients;
    /// By time, and by kind within a moment.
    std::multimap<std::pair<concurrency::Duration, int>, Action> actions;
    Temperatures lastHID;  ///< what the hub shows, or will show again
};

}  // namespace airflow::simulation
