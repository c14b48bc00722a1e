// FanHoldPlanner: what has to be written so that the fans do what was decided. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "evaluation/FanDecision.h"

namespace airflow::evaluation {

/// Lists are ascending, so that the order of writes is the same every time.
struct FanHoldActions {
    std::vector<std::int64_t> toClaim;       ///< wanted in forced mode, not yet claimed
    std::vector<std::int64_t> toRelease;     ///< claimed, no longer wanted
    std::map<std::int64_t, double> targets;  ///< RPM for every wanted fan; 0 for a stopped one
    bool forceTestEnabled = false;           ///< at least one fan is wanted in forced mode
    std::vector<std::int64_t> stoppedFans;   ///< decided idleStopped
    bool isGlobalIdle = false;  ///< at least one fan is stopped, and no fan has a target

    bool operator==(const FanHoldActions&) const = default;
};

namespace FanHoldPlanner {

/// What to do, given the decisions and the fans that are held in forced mode already. A claimed fan
/// without a decision is released.
[[nodiscard]] FanHoldActions actions(const std::map<std::int64_t, FanDecision>& decisions,
                                     const std::set<std::int64_t>& claimedFans);

}  // namespace FanHoldPlanner

}  // namespace airflow::evaluation
