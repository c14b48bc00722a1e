// Monitors of what ends control: silence, heat, and checks that are not made.
#pragma once

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// silenceEndsControl, heatEndsControl and overdueChecksEndControl.
class WatchMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void looked(Duration now, SimulatedMac& mac) override;

private:
    [[nodiscard]] bool areChecksMade(Duration now) const;
    void judgeSilence(std::size_t index, Duration now) const;
    void judgeHeat(std::size_t index, const RunModel::Fan& fan, Duration now) const;
    void judgeChecks(std::size_t index, const RunModel::Fan& fan, Duration now) const;
};

}  // namespace airflow::simulation
