// Replay: the control logic run over recorded snapshots, as if every claim and release succeeded.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "evaluation/FanHoldPlanner.h"
#include "evaluation/PlanEvaluator.h"
#include "plan/FanControlPlan.h"
#include "sensors/SensorSnapshot.h"

namespace airflow::tool {

/// What was decided on one tick.
struct ReplayTick {
    std::map<std::int64_t, evaluation::FanDecision> decisions;
    evaluation::FanHoldActions actions;
    std::vector<std::size_t> latchedRules;   ///< indices of the plan's rules that latched now
    std::vector<std::size_t> releasedRules;  ///< and of those that let go
};

class Replay {
public:
    explicit Replay(plan::FanControlPlan plan) : plan(std::move(plan)) {}

    [[nodiscard]] ReplayTick step(const sensors::SensorSnapshot& snapshot, concurrency::Date now);

    [[nodiscard]] const evaluation::PlanEvaluator& memory() const { return evaluator; }

private:
    plan::FanControlPlan plan;
    evaluation::PlanEvaluator evaluator;
    std::set<std::int64_t> claimedFans;
};

}  // namespace airflow::tool
