#include "evaluation/FanHoldPlanner.h"

#include <algorithm>
#include <iterator>

#include "evaluation/FanStopPolicy.h"

namespace airflow::evaluation {

FanHoldActions FanHoldPlanner::actions(const std::map<std::int64_t, FanDecision>& decisions,
                                       const std::set<std::int64_t>& claimedFans) {
    FanHoldActions result;
    std::set<std::int64_t> wanted;
    for (const auto& [fan, decision] : decisions) {
        if (std::holds_alternative<ReleaseToAuto>(decision)) continue;
        wanted.insert(fan);
        if (const auto* target = std::get_if<Target>(&decision))
            result.targets[fan] = target->rpm;
        else
            result.stoppedFans.push_back(fan);
    }
    result.isGlobalIdle = result.targets.empty() && !result.stoppedFans.empty();
    std::ranges::set_difference(wanted, claimedFans, std::back_inserter(result.toClaim));
    std::ranges::set_difference(claimedFans, wanted, std::back_inserter(result.toRelease));
    for (const std::int64_t fan : result.stoppedFans) {
        result.targets[fan] = FanStopPolicy::stoppedTargetRPM;
    }
    result.forceTestEnabled = !wanted.empty();
    return result;
}

}  // namespace airflow::evaluation
