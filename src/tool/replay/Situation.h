// Situation: everything that one evaluation of a plan was made with, to be asked about later.
#pragma once

#include <cstddef>
#include <cstdint>

#include "concurrency/Date.h"
#include "control/LocalFanController.h"
#include "evaluation/EvaluationRecord.h"
#include "evaluation/PlanEvaluator.h"
#include "plan/FanControlPlan.h"
#include "sensors/SensorSnapshot.h"

namespace airflow::tool {

/// Its answers come from the evaluator itself, which is given the same again.
struct Situation {
    evaluation::PlanEvaluator memory;  ///< before the evaluation
    plan::FanControlPlan plan;
    sensors::SensorSnapshot snapshot;
    concurrency::Date now = concurrency::distantPast;

    [[nodiscard]] static Situation of(const control::LocalFanController::Evaluation& evaluation) {
        return {.memory = evaluation.memory,
                .plan = evaluation.plan,
                .snapshot = evaluation.snapshot,
                .now = evaluation.now};
    }

    [[nodiscard]] evaluation::EvaluationRecord record() const { return recordAfter(memory, plan); }
    /// The same, if these rules of the plan, by index, were gone from now on. What they did before
    /// remains: a rate limit counts from their speed.
    [[nodiscard]] evaluation::EvaluationRecord recordWithout(
        const std::vector<std::size_t>& rules) const {
        auto changedMemory = memory;
        auto changedPlan = plan;
        for (const std::size_t rule : rules) {
            changedPlan.rules[rule].enabled = false;
            changedMemory.ruleLatched.erase(plan.rules[rule].id);
        }
        return recordAfter(changedMemory, changedPlan);
    }

private:
    [[nodiscard]] evaluation::EvaluationRecord recordAfter(
        evaluation::PlanEvaluator evaluator, const plan::FanControlPlan& evaluated) const {
        evaluation::EvaluationRecord record;
        (void)evaluator.evaluate(evaluated, snapshot, now, &record);
        return record;
    }
};

}  // namespace airflow::tool
