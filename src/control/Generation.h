// Generations: let suspended work find out that something newer has superseded it.
#pragma once

#include <cstdint>

namespace airflow::control {

/// A count of one kind of event. Generations of two kinds cannot be compared or exchanged.
template <typename Kind>
class Generation {
public:
    /// From now on everything that remembers an earlier one is superseded.
    void advance() { ++number; }

    bool operator==(const Generation&) const = default;

private:
    std::int64_t number = 0;
};

/// Advanced by every release of all fans: supersedes claims, control steps and plans under way.
using ReleaseGeneration = Generation<struct ReleaseKind>;
/// Advanced by every plan: supersedes retries of the releases before it.
using PlanGeneration = Generation<struct PlanKind>;

/// The generations in which an operation that claims fans began.
struct Generations {
    ReleaseGeneration release;
    PlanGeneration plan;
};

}  // namespace airflow::control
