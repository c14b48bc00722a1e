// ScenarioRun: plays a scenario through the real controller in virtual time, and tells what
// happens.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "control/ControlResult.h"
#include "control/ControlState.h"
#include "simulation/Scenario.h"
#include "simulation/SimulatedSystem.h"

namespace airflow::simulation {

/// What a client was answered.
struct Reply {
    std::string client{};
    Call::Method method = Call::Method::heartbeat;
    std::optional<control::ControlResult> result{};  ///< of commands that have one
    std::optional<control::ControlState> state{};    ///< of readState
};

/// Is told, in order, of everything that happens in a scenario. `time` is since its start.
class ScenarioObserver {
public:
    ScenarioObserver() = default;
    ScenarioObserver(const ScenarioObserver&) = delete;
    ScenarioObserver& operator=(const ScenarioObserver&) = delete;
    virtual ~ScenarioObserver() = default;

    /// A request that reached the SMC.
    virtual void access(const SMCAccess& access) = 0;
    /// The true mode of a fan has changed, whoever changed it.
    virtual void modeChanged(concurrency::Duration time, std::size_t fan, FanMode mode) = 0;
    virtual void published(concurrency::Duration time, const control::ControlState& state) = 0;
    virtual void called(concurrency::Duration time, std::string_view client, const Call& call) = 0;
    virtual void replied(concurrency::Duration time, const Reply& reply) = 0;
    /// A line for standard error, with its newline.
    virtual void logged(concurrency::Duration time, std::string_view line) = 0;
    /// Once a second, and at the start: the machine, for whoever wants to look.
    virtual void second(concurrency::Duration time, SimulatedMac& mac) = 0;
};

class ScenarioRun {
public:
    /// Both outlive the run.
    ScenarioRun(const Scenario& scenario, ScenarioObserver& observer, std::uint64_t seed);
    ~ScenarioRun();
    ScenarioRun(const ScenarioRun&) = delete;
    ScenarioRun& operator=(const ScenarioRun&) = delete;

    /// Start-up recovery, then everything that the scenario holds, for `length` of virtual time.
    /// A recovery that fails ends the daemon, as it does on a Mac.
    /// The only client, "app", is there from the start.
    void play(concurrency::Duration length);

    /// Depends on every step of the run: equal for equal runs.
    [[nodiscard]] std::uint64_t fingerprint() const { return system.runtime.fingerprint(); }

private:
    using Task = concurrency::Task<void>;

    static Task watchStates(ScenarioRun& run);
    static Task watchSeconds(ScenarioRun& run);
    static Task recover(ScenarioRun& run);
    static Task changeTemperatures(ScenarioRun& run);
    static Task changeFirmware(ScenarioRun& run);
    static Task performEvent(ScenarioRun& run, Event event);
    static Task beat(ScenarioRun& run, Heartbeats beats);
    static Task perform(ScenarioRun& run, Call call);
    static concurrency::Task<Reply> answer(ScenarioRun& run, Call call);

    void apply(const TemperatureChange& change);
    Task sleepUntil(concurrency::Duration time);

    const Scenario& scenario;
    ScenarioObserver& observer;
    SimulatedSystem system;
    Temperatures lastHID;   ///< what the hub shows, or will show again
    bool hasEnded = false;  ///< the daemon has stopped: nobody answers any more
};

}  // namespace airflow::simulation
