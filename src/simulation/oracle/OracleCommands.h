// Monitors of what becomes of commands.
#pragma once

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// everyCommandIsAnsweredOnce.
class AnswerMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void answeredInVain(Duration now, const Reply& reply) override;
    void looked(Duration now, SimulatedMac& mac) override;
};

/// appliedIsTrue: what is answered as applied was done, and is in force.
class AppliedMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void answered(Duration now, const RunModel::Command& command, const Reply& reply) override;

private:
    void judgeFans(Duration now, const RunModel::Command& command) const;
};

/// controlLasts: nobody takes away what a client wants.
class ControlMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void askedToRelease(std::size_t index, Duration now) override;

private:
    [[nodiscard]] bool mayBeUnsafe(Duration now) const;
};

}  // namespace airflow::simulation
