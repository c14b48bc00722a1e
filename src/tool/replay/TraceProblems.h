// TraceProblems: what in a recording cannot have happened on a machine that a daemon watched.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tool/replay/Trace.h"

namespace airflow::tool {

/// Looks at the lines of one trace in their order.
class TraceProblems {
public:
    /// The daemon looks every 1.5 s; what lies further apart than two of its ticks leaves out what
    /// it would have seen.
    static constexpr double longestGapSeconds = 3;

    /// What is wrong with the next line, each with its place in the line: "fans[1].id: ...".
    [[nodiscard]] std::vector<std::string> find(const TraceTick& tick);

private:
    std::optional<double> last;  ///< time of the line before, seconds
};

}  // namespace airflow::tool
