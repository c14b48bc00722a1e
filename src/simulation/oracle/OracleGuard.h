// Monitor of the guard: a second line of defence that acts in ordinary runs hides what is wrong
// with the first.
#pragma once

#include <optional>

#include "simulation/oracle/Monitor.h"

namespace airflow::simulation {

/// guardIsQuiet.
class GuardMonitor final : public Monitor {
public:
    using Monitor::Monitor;
    void called(Duration now, const Call& call) override;
    void guarded(Duration now) override;

private:
    std::optional<Duration> lastFlood;
};

}  // namespace airflow::simulation
