// HeldFans: the fans that the clients' commands want forced, as far as that is certain.
#pragma once

#include <cstddef>
#include <set>

#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

/// Whether some temperature of the scenario reaches the thermal ceiling, or comes near it.
[[nodiscard]] bool reachesCeiling(const Scenario& scenario);
/// Whether the daemon reads every temperature and every fan of the machine at all times.
[[nodiscard]] bool readsEverything(const Scenario& scenario);
/// Whether the daemon sees how hot the machine is, as far as the scenario can say: everything that
/// it reads is what it is.
[[nodiscard]] bool showsHeat(const Scenario& scenario);
/// The fans that a command that controls fans may want forced: those of its plan that it does not
/// leave on Auto, or every fan of this many where its rules may choose.
[[nodiscard]] std::set<std::size_t> managedFans(const Call& call, std::size_t fanCount);
/// Those of them that it wants at a fixed speed above 0, whatever the temperatures.
[[nodiscard]] std::set<std::size_t> fixedFans(const Call& call, std::size_t fanCount);

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
    /// Those of them that are held at 100 % or more.
    [[nodiscard]] bool isAtFullBlast(std::size_t fan) const;

private:
    std::size_t fanCount;
    bool isCertain = true;
    std::set<std::size_t> held;
    std::set<std::size_t> full;
};

}  // namespace airflow::simulation
