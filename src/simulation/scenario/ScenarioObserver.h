// ScenarioObserver: who is told what happens in a scenario.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "concurrency/Require.h"
#include "control/ControlResult.h"
#include "control/ControlState.h"
#include "control/LocalFanController.h"
#include "sensors/SensorSnapshot.h"
#include "simulation/daemon/SimulatedProcess.h"
#include "simulation/machine/SimulatedMac.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

/// What a client was answered.
struct Reply {
    std::string client{};
    Call::Method method = Call::Method::heartbeat;
    std::optional<control::ControlResult> result{};  ///< of commands that have one, from its code
    /// Of readState, from its document; absent when that was none.
    std::optional<control::ControlState> state{};
    std::string version{};    ///< of helperVersion
    std::uint64_t call = 0;   ///< the Call's
    bool isDelivered = true;  ///< false: the client was gone by then
};

/// Is told, in order, of everything that happens in a scenario, with the time since its start. Does
/// nothing about what it does not override.
class ScenarioObserver {
public:
    ScenarioObserver() = default;
    ScenarioObserver(const ScenarioObserver&) = delete;
    ScenarioObserver& operator=(const ScenarioObserver&) = delete;
    virtual ~ScenarioObserver() = default;

    /// A request that reached the SMC.
    virtual void access(const SMCAccess&) {}
    /// The true mode of a fan has changed, whoever changed it.
    virtual void modeChanged(concurrency::Duration, std::size_t /*fan*/, FanMode) {}
    virtual void published(concurrency::Duration, const control::ControlState&) {}
    virtual void called(concurrency::Duration, std::string_view /*client*/, const Call&) {}
    /// An answer, whether or not its client was still there.
    virtual void replied(concurrency::Duration, const Reply&) {}
    /// A line for standard error, with its newline.
    virtual void logged(concurrency::Duration, std::string_view /*line*/) {}
    /// Once a second, and at the start: the machine, for whoever wants to look.
    virtual void second(concurrency::Duration, SimulatedMac&) {}

    /// The daemon has read its sensors.
    virtual void looked(concurrency::Duration, const sensors::SensorSnapshot&) {}
    /// It is about to decide what its fans are to do.
    virtual void evaluating(concurrency::Duration, const control::LocalFanController::Evaluation&) {
    }

    /// The daemon's process was started.
    virtual void started(concurrency::Duration) {}
    /// It accepts clients from now on.
    virtual void listening(concurrency::Duration) {}
    /// It has begun to end itself: a signal was handled, or something asked for the exit.
    virtual void exitBegan(concurrency::Duration) {}
    /// The daemon's guard gives fans back, which the controller has left forced.
    virtual void guarded(concurrency::Duration) {}
    virtual void signalled(concurrency::Duration, daemon::Signal) {}
    virtual void ended(const ProcessEnd&) {}
    /// The daemon met a bug and has stopped itself; its line was logged. Where nobody expects one,
    /// it must not pass for one of the ends that a scenario asks for: unless an observer says what
    /// becomes of it, the bug ends this process, too.
    virtual void metBug(concurrency::Duration, std::string_view violation) {
        concurrency::abortProcess(violation);
    }
    virtual void connected(concurrency::Duration, std::string_view, bool /*isUntrusted*/) {}
    virtual void clockJumped(concurrency::Duration, double /*seconds*/) {}
    virtual void disconnected(concurrency::Duration, std::string_view) {}
};

}  // namespace airflow::simulation
