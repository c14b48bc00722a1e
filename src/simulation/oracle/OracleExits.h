// Monitors of the daemon's start and end.
#pragma once

#include <optional>

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// recoveryComesFirst: no client is served while a fan that could be found is forced.
class RecoveryMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void listening(Duration now) override;
    void answered(Duration now, const RunModel::Command& command, const Reply& reply) override;
};

/// exitRestoresFirst, exitIsInTime, firstExitCounts and inputNeverStopsTheProcess.
class ExitMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void askedToForce(std::size_t index, Duration now) override;
    void looked(Duration now, SimulatedMac& mac) override;
    void started(Duration now) override;
    void listening(Duration now) override;
    void called(Duration now, const Call& call) override;
    void signalled(Duration now, daemon::Signal signal) override;
    void exitBegan(Duration now) override;
    void ended(const ProcessEnd& end) override;

private:
    void judgeTime(Duration now) const;
    void judgeFans(Duration now) const;
    void judgeStatus(const ProcessEnd& end) const;
    [[nodiscard]] bool mayStayForced(std::size_t index) const;

    std::optional<int> signalStatus;    ///< of the first signal of this life
    bool isUpgraded = false;            ///< in this life
    bool isAnySignal = false;           ///< a second one of another kind has come
    std::optional<int> expectedStatus;  ///< of the exit that began; 1 stands for every other
    bool isExpectationSure = false;
};

}  // namespace airflow::simulation
