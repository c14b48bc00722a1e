// PlanReview: what the author of a plan document should know about it. Pure.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "plan/FanControlPlan.h"
#include "review/Finding.h"
#include "review/Machine.h"

namespace airflow::review {

struct PlanReview {
    std::optional<plan::FanControlPlan> plan;  ///< absent when the daemon would refuse the document
    std::vector<Finding> findings;             ///< in the order of their places in the text
};

/// Everything there is to say about a plan document; of one that is no plan the first error alone.
/// With a machine also what it lacks.
[[nodiscard]] PlanReview reviewPlan(std::string_view document, const Machine* machine = nullptr);

}  // namespace airflow::review
