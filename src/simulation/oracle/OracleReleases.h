// Monitors of what follows a reason to give fans back.
#pragma once

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// releaseBegins and releaseIsRetried: a fan that nobody wants is asked to go back, and again.
class ReleaseMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void looked(Duration now, SimulatedMac& mac) override;

private:
    void judge(std::size_t index, const RunModel::Fan& fan, Duration now) const;
};

/// releaseLasts: what was released is not forced again.
class ReleaseLastsMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void askedToForce(std::size_t index, Duration now) override;
    void published(Duration now, const control::ControlState& state) override;
};

/// hiddenFansAreFound: what recovery could not find, and what the SMC lied about.
class HiddenFanMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void looked(Duration now, SimulatedMac& mac) override;

private:
    void judgeHidden(std::size_t index, const RunModel::Fan& fan, Duration now) const;
    void judgeLiedAbout(std::size_t index, const RunModel::Fan& fan, Duration now) const;
};

}  // namespace airflow::simulation
