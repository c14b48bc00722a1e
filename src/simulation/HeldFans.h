// HeldFans: the fans that the clients' commands want forced, as far as that is certain.
#pragma once

#include <cstddef>
#include <set>

#include "simulation/Scenario.h"

namespace airflow::simulation {

/// Whether some temperature of the scenario reaches the thermal ceiling, or comes near it.
[[nodiscard]] bool reachesCeiling(const Scenario& scenario);
/// Whether the daemon reads every temperature and every fan of the machine at all times.
[[nodiscard]] bool readsEverything(const Scenario& scenario);
/// Whether the daemon sees how hot the machine is, as far as the scenario can say.
[[nodiscard]] bool showsHeat(const Scenario& scenario);
/// Whether the plan manages any fan.
[[nodiscard]] bool managesAny(const plan::FanControlPlan& plan);

/// Only fixed speeds above 0 are certain: a curve may give its fan back. What overlapping or failed
/// commands leave behind is not certain either; then no fan is known to be held.
class HeldFans {
public:
    explicit HeldFans(std::size_t fanCount) : fanCount(fanCount) {}

    /// A command that controls fans, with a plan that can be read.
    void command(const Call& call, bool isAlone);
    /// Some command was not applied, or collided with another.
    void lose() { isCertain = false; }
    /// Everything was given back.
    void release();

    /// None while it is not certain.
    [[nodiscard]] const std::set<std::size_t>& fans() const;

private:
    void replace(const plan::FanControlPlan& plan);

    std::size_t fanCount;
    bool isCertain = true;
    std::set<std::size_t> held;
};

}  // namespace airflow::simulation
