#include "tool/plans/Replay.h"

namespace airflow::tool {

ReplayTick Replay::step(const sensors::SensorSnapshot& snapshot, concurrency::Date now) {
    const auto latchedBefore = evaluator.ruleLatched;
    ReplayTick tick;
    tick.decisions = evaluator.evaluate(plan, snapshot, now);
    tick.actions = evaluation::FanHoldPlanner::actions(tick.decisions, claimedFans);
    for (const std::int64_t fan : tick.actions.toClaim) claimedFans.insert(fan);
    for (const std::int64_t fan : tick.actions.toRelease) claimedFans.erase(fan);
    for (std::size_t i = 0; i < plan.rules.size(); ++i) {
        const bool before = latchedBefore.contains(plan.rules[i].id);
        const bool after = evaluator.ruleLatched.contains(plan.rules[i].id);
        if (after && !before) tick.latchedRules.push_back(i);
        if (before && !after) tick.releasedRules.push_back(i);
    }
    return tick;
}

}  // namespace airflow::tool
