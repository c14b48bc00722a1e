// Monitors of what the daemon tells.
#pragma once

#include <optional>
#include <set>
#include <vector>

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// stateIsTrue: what a state says of fans and of errors.
class StateMonitor final : public Monitor {
public:
    StateMonitor(const RunModel& judged, Fail told);
    void requested(const SMCAccess& access) override;
    void published(Duration now, const control::ControlState& state) override;
    void called(Duration now, const Call& call) override;
    void answered(Duration now, const RunModel::Command& command, const Reply& reply) override;
    void reasonArose(Duration now) override;
    /// Its release tells its reason again.
    void guarded(Duration now) override { reasonArose(now); }
    void started(Duration now) override;

private:
    using State = control::ControlState;

    void judgeTargets(Duration now, const State& state) const;
    void judgeIdle(Duration now, const State& state, const Mark& asked) const;
    void judgeHolding(Duration now, const State& state, const Mark& asked) const;
    void judgeGivenBack(Duration now, const State& state, const Mark& asked) const;
    void judgeModes(Duration now, const State& state) const;

    std::vector<std::set<double>> targets;  ///< of each fan, written in this life
    std::set<std::size_t> unwritten;        ///< fans with a target that did not reach the SMC
    /// Why fans were released or refuse to be, when nothing has happened since.
    bool isForceTestRefused = false;  ///< to be lowered, at the last time
    std::optional<control::ControlError> standing;
    std::optional<control::ControlError> lastCause;  ///< as it was published last
    std::optional<DriverClock::Mark> lastReason;     ///< to give every fan back
};

/// reasonsAreTrue: a release that nobody asked for has a reason.
class ReasonMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void telling(Duration now, const control::ControlState& state) override;
    void askedToForce(std::size_t fan, Duration now) override;
    void guarded(Duration now) override;
    void started(Duration now) override;

private:
    void judge(Duration now, const control::HeartbeatLost& error) const;
    void judge(Duration now, const control::CeilingExceeded& error) const;
    void judge(Duration now, const control::TemperaturesMissing& error) const;
    void judge(Duration now, const control::ChecksOverdue& error) const;
    void judge(Duration now, const control::FanUnattended& error) const;
    void judge(Duration, const control::NotRestored&) const {}
    void judge(Duration, const control::Reclaimed&) const {}
    void judge(Duration, const control::PlanIncomplete&) const {}

    std::optional<Duration> lastStep;  ///< of the hold loop, which asserts what it holds
    std::optional<control::ControlError> lastJudged;
    std::optional<Duration> sinceStep;  ///< when the guard last acted
};

}  // namespace airflow::simulation
