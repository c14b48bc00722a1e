#include <set>

#include "evaluation/FanHoldPlanner.h"
#include "evaluation/Ticks.h"

namespace airflow::evaluation {
namespace {

using Fans = std::set<std::int64_t>;

struct Situation {
    Decisions decisions;
    Fans claimed;
};

rc::Gen<std::int64_t> anyFan() {
    return rc::gen::inRange<std::int64_t>(-2, 12);
}

Situation anySituation() {
    const auto decision =
        rc::gen::weightedOneOf<FanDecision>({{2, rc::gen::map(generators::halves(0, 5000), rpm)},
                                             {3, rc::gen::just(stopped)},
                                             {2, rc::gen::just(released)}});
    const auto entries = *generators::few(8, rc::gen::pair(anyFan(), decision));
    const auto claimed = *generators::few(8, anyFan());
    return {Decisions(entries.begin(), entries.end()), Fans(claimed.begin(), claimed.end())};
}

bool lists(const std::vector<std::int64_t>& fans, std::int64_t fan) {
    return std::ranges::find(fans, fan) != fans.end();
}

RC_GTEST_PROP(FanHoldPlannerProperties, listsAreSortedDisjointAndCoverTheFans, ()) {
    const auto [decisions, claimed] = anySituation();
    const FanHoldActions actions = FanHoldPlanner::actions(decisions, claimed);
    for (const auto* list : {&actions.toClaim, &actions.toRelease, &actions.stoppedFans}) {
        RC_ASSERT(std::ranges::adjacent_find(*list, std::ranges::greater_equal{}) == list->end());
    }
    for (std::int64_t fan = -3; fan < 13; ++fan) {
        const bool isWanted = decisions.contains(fan) && decisions.at(fan) != released;
        const bool isClaimed = claimed.contains(fan);
        RC_ASSERT(lists(actions.toClaim, fan) == (isWanted && !isClaimed));
        RC_ASSERT(lists(actions.toRelease, fan) == (isClaimed && !isWanted));
        RC_ASSERT(actions.targets.contains(fan) == isWanted);
    }
}

RC_GTEST_PROP(FanHoldPlannerProperties, everyWantedFanGetsTheSpeedThatWasDecided, ()) {
    const auto [decisions, claimed] = anySituation();
    const FanHoldActions actions = FanHoldPlanner::actions(decisions, claimed);
    for (const auto& [fan, speed] : actions.targets) {
        const FanDecision& decision = decisions.at(fan);
        RC_ASSERT(decision == rpm(speed) || (decision == stopped && speed == 0));
        RC_ASSERT(lists(actions.stoppedFans, fan) == (decision == stopped));
    }
    RC_ASSERT(std::ranges::all_of(actions.stoppedFans,
                                  [&](std::int64_t fan) { return actions.targets.contains(fan); }));
    RC_ASSERT(actions.forceTestEnabled == !actions.targets.empty());
    RC_ASSERT(actions.isGlobalIdle ==
              (actions.forceTestEnabled && actions.targets.size() == actions.stoppedFans.size()));
}

RC_GTEST_PROP(FanHoldPlannerProperties, onceDoneThereIsNothingToClaimOrRelease, ()) {
    const auto [decisions, claimed] = anySituation();
    const FanHoldActions first = FanHoldPlanner::actions(decisions, claimed);
    Fans held = claimed;
    held.insert(first.toClaim.begin(), first.toClaim.end());
    for (const std::int64_t fan : first.toRelease) held.erase(fan);
    FanHoldActions settled = first;
    settled.toClaim = {};
    settled.toRelease = {};
    RC_ASSERT(FanHoldPlanner::actions(decisions, held) == settled);
}

}  // namespace
}  // namespace airflow::evaluation
